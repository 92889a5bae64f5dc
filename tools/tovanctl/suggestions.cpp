#include "tools/tovanctl/suggestions.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <numeric>

namespace tovanctl {
namespace {

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return text;
}

// Insertions, deletions and replacements between two texts, capitals apart (Wagner and Fischer's table, row by row).
std::size_t distance(const std::string& leftText, const std::string& rightText) {
  const std::string left = lower(leftText);
  const std::string right = lower(rightText);
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= left.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= right.size(); ++j) {
      const std::size_t replaced = diagonal + (left[i - 1] == right[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row.back();
}

// Near: few changes for its length, or the name is a whole part of the known one ("transcoder").
bool isNear(const std::string& name, const std::string& known, std::size_t changes) {
  if (name.size() >= 3 && lower(known).find(lower(name)) != std::string::npos) return true;
  return changes <= std::max<std::size_t>(1, std::min(name.size(), known.size()) / 3);
}

}  // namespace

std::string unknownName(const std::string& what, const std::string& name, const std::vector<std::string>& known) {
  std::string message = "no " + what + " called \"" + name + "\"";
  const std::string* best = nullptr;
  std::size_t fewest = 0;
  for (const std::string& candidate : known) {
    const std::size_t changes = distance(name, candidate);
    if (isNear(name, candidate, changes) && (best == nullptr || changes < fewest)) {
      best = &candidate;
      fewest = changes;
    }
  }
  if (best != nullptr) return message + "; did you mean \"" + *best + "\"?";
  if (known.empty()) return message + "; there are none";
  if (known.size() > 8) return message;
  message += "; there are:";
  for (const std::string& candidate : known) message += " " + candidate;
  return message;
}

}  // namespace tovanctl
