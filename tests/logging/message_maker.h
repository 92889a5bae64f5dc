// message_maker.h: messages of any bytes, with more of what XML gives a meaning to than chance has.
#pragma once

#include <cstdint>
#include <iterator>
#include <random>
#include <string>

namespace test {

class MessageMaker {
 public:
  explicit MessageMaker(std::uint64_t seed) : random_(seed) {}

  std::string make() {
    static const std::string kPieces[] = {
        "a",    " ",    "'",     "\"",  "<",    ">",  "&",      ";",         "&amp;",   "&#",       "&#x",
        "&lt;", "1F6;", "D800;", "0;",  "x41;", "=",  "a=\"",   "/>",        "\n",      "\t",       "\r",
        "]]>",  "<!--", "%41",   "é",   "日",   "😀",  "\uFFFE", "\uFFFF",    "\x7F",    "\u0085",   "\uFEFF",
        "&qu",  "&gt;", "&b;",   "msg", "</l>", "<?", "?>",     "\" pid=\"", "\" b=\"", "\" lvl='", "\xED\xA0\x80"};
    std::string message;
    for (std::uint64_t count = random_() % 10; count > 0; --count) {
      message += random_() % 4 == 0 ? std::string(1, static_cast<char>(random_() % 256))
                                    : kPieces[random_() % std::size(kPieces)];
    }
    return message;
  }

 private:
  std::mt19937_64 random_;
};

}  // namespace test
