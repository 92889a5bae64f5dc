// What the daemon lists, against a model, over random operations of several client processes that are killed at random,
// and of daemons that are.
#include <CoreFoundation/CoreFoundation.h>
#include <plinth/exception.h>
#include <tovan/dn_shared_storage_client.h>

#include <algorithm>
#include <map>
#include <random>

#include "tests/tools/integration/storage_host.h"

namespace {

using nlohmann::json;
using test::RunningProgram;

constexpr int kOperations = 400;
constexpr int kPerLook = 25;
constexpr int kPerDaemon = 75;

// One folder's references, in the order of the clients' first ones.
struct Model {
  std::vector<std::pair<std::string, std::vector<long>>> clients;
  int total = 0;
  int returned = 0;
  bool isLeftOver = false;  // from a daemon that was killed

  std::vector<long>* pidsOf(const std::string& client) {
    for (auto& [name, pids] : clients) {
      if (name == client) return &pids;
    }
    return nullptr;
  }
  void take(const std::string& client, long pid) {
    isLeftOver = false;
    if (pidsOf(client) == nullptr) clients.push_back({client, {}});
    pidsOf(client)->push_back(pid);
    ++total;
  }
  // The live count afterwards.
  int giveBack(const std::string& client, long pid) {
    if (isLeftOver) return 0;
    std::vector<long>* const pids = pidsOf(client);
    if (pids == nullptr || total <= returned) return total - returned;
    if (pid == -1) {
      const bool isMixed = std::any_of(pids->begin(), pids->end(), [&](long one) { return one != pids->front(); });
      if (isMixed) {
        ++returned;
      } else {
        pids->pop_back();
        --total;
      }
    } else {
      const auto found = std::find(pids->begin(), pids->end(), pid);
      if (found == pids->end()) return total - returned;
      pids->erase(found);
      --total;
    }
    std::erase_if(clients, [](const auto& one) { return one.second.empty(); });
    if (returned >= 1 && returned == total) return 0;
    return total - returned;
  }
};

class StorageModelTest : public test::StorageHost {
 protected:
  void startProcesses(int count) {
    for (int i = 0; i < count; ++i) {
      processes_.push_back(std::make_unique<RunningProgram>("/bin/sleep", Arguments{"600"}));
    }
  }
  bool isGone(long pid) const {
    return std::any_of(processes_.begin(), processes_.end(),
                       [pid](const auto& process) { return process->pid() == pid && process->hasEnded(); });
  }
  json expected() const {
    json exports = json::array();
    for (const auto& [path, model] : models_) {
      json holders = json::array();
      for (const auto& [client, pids] : model.clients) addHolders(holders, client, pids);
      exports.push_back({{"path", path},
                         {"references", model.total - model.returned},
                         {"total", model.total},
                         {"returned", model.returned},
                         {"inExportsFile", true},
                         {"leftOver", model.isLeftOver},
                         {"holders", holders}});
    }
    return exports;
  }
  void addHolders(json& holders, const std::string& client, const std::vector<long>& pids) const {
    std::vector<long> seen;
    for (const long pid : pids) {
      if (std::find(seen.begin(), seen.end(), pid) != seen.end()) continue;
      seen.push_back(pid);
      holders.push_back(holder(client, pid > 0 ? json(pid) : json(nullptr),
                               pid <= 0      ? "none"
                               : isGone(pid) ? "gone"
                                             : "alive",
                               static_cast<int>(std::count(pids.begin(), pids.end(), pid))));
    }
  }

  static json listed() {
    json exports = list()["exports"];
    std::sort(exports.begin(), exports.end(), [](const json& left, const json& right) {
      return left["path"].get<std::string>() < right["path"].get<std::string>();
    });
    return exports;
  }
  void replaceDaemon() {
    killDaemon();
    startDaemon();
    for (auto& [path, model] : models_) {
      model = {};
      model.isLeftOver = true;
    }
  }

  std::map<std::string, Model> models_;
  std::vector<std::unique_ptr<RunningProgram>> processes_;
};

TEST_F(StorageModelTest, TheListIsTheModelsOverRandomOperationsAndDeathsOfHoldersAndDaemons) {
  startDaemon();
  startProcesses(6);
  const auto client = plinth::makeShared<tovan::CDNSharedStorageClient>();
  std::mt19937 random(7);  // NOLINT(cert-msc51-cpp): the same run each time
  const auto below = [&random](std::size_t limit) { return random() % limit; };
  const std::vector<std::string> names = {"one", "two", "three"};
  int refused = 0;
  for (int operation = 1; operation <= kOperations; ++operation) {
    const std::string path = folder("folder " + std::to_string(below(3)));
    const std::string name = names[below(names.size())];
    const std::size_t chosen = below(processes_.size() + 1);
    const long pid = chosen == processes_.size() ? -1 : processes_[chosen]->pid();
    const auto url = plinth::makeShared<plinth::CURL>(plinth::CSTR(path), kCFURLPOSIXPathStyle, true);
    if (below(100) < 52) {
      if (isGone(pid)) continue;  // the dead take nothing
      client->publish(url, plinth::CSTR(name), pid);
      models_[path].take(name, pid);
    } else if (models_.count(path) == 0) {
      EXPECT_THROW(client->unpublish(url, plinth::CSTR(name), pid), plinth::CException);
      ++refused;
    } else {
      client->unpublish(url, plinth::CSTR(name), pid);
      if (models_[path].giveBack(name, pid) == 0) models_.erase(path);
    }
    if (below(100) < 2) processes_[below(processes_.size())]->end(SIGKILL);
    if (operation % kPerDaemon == 0) replaceDaemon();
    if (operation % kPerLook != 0) continue;
    ASSERT_EQ(listed(), expected()) << "after operation " << operation;
  }
  EXPECT_EQ(listed(), expected());
  EXPECT_GT(refused, 0);
}

}  // namespace
