// Publishing a folder and giving it back with a thousand exports in the file, beside what cannot be done without: the
// same file read, and replaced by one with a line more and again by one without, by hand. On disk, where each
// replacement is seen onto the disk first, and in memory, where the work itself shows.
#include <plinth/string.h>
#include <plinth/url.h>
#include <tovan/nfs_shared_storage_publisher.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr int kExports = 1000;

[[noreturn]] void fail(const char* call) {
  std::perror(call);
  std::_Exit(1);
}

// A folder with an exports file, which goes with the object.
class Place {
 public:
  explicit Place(const std::string& parent) {
    std::string pattern = parent + "/tovan-bench-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) fail("mkdtemp");
    folder_ = std::filesystem::canonical(pattern);
    std::ofstream file(exports());
    for (int index = 0; index < kExports; ++index) {
      char name[32];
      std::snprintf(name, sizeof name, "%08X-%08X", static_cast<unsigned>(index) * 2654435761U,
                    static_cast<unsigned>(index));
      file << "/Users/Shared/My\\ Storage/" << name << "/shared\n";
    }
  }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;
  ~Place() { std::filesystem::remove_all(folder_); }

  std::string exports() const { return folder_ + "/exports"; }
  std::string published() const { return folder_ + "/published"; }

 private:
  std::string folder_;
};

// What the publisher does to its file, on bytes: read, write beside, onto the disk, compare, rename.
class ByHand {
 public:
  explicit ByHand(const Place& place) : path_(place.exports()), beside_(path_ + ".new") {}
  void operator()() {
    const std::string before = read();
    replace(before, before + line_);
    const std::string after = read();
    replace(after, after.substr(0, after.size() - line_.size()));
  }

 private:
  std::string read() const {
    const int file = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat facts {};
    if (file < 0 || ::fstat(file, &facts) != 0) fail("open");
    std::string text(static_cast<std::size_t>(facts.st_size), '\0');
    if (::read(file, text.data(), text.size()) != facts.st_size) fail("read");
    ::close(file);
    return text;
  }
  void replace(const std::string& old, const std::string& text) const {
    const int file = ::open(beside_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0 || ::write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) fail("write");
    if (::fsync(file) != 0) fail("fsync");
    ::close(file);
    if (read() != old || ::rename(beside_.c_str(), path_.c_str()) != 0) fail("rename");
  }

  std::string path_;
  std::string beside_;
  std::string line_ = "/Users/Shared/My\\ Storage/published\n";
};

class Publishing {
 public:
  explicit Publishing(const Place& place)
      : url_(plinth::makeShared<plinth::CURL>(plinth::CSTR(place.published()), kCFURLPOSIXPathStyle, true)) {
    publisher_->setExportsFilePath(plinth::CSTR(place.exports()));
  }
  void operator()() {
    publisher_->publish(url_, client_, 100);
    publisher_->unpublish(url_, client_, 100);
  }

 private:
  plinth::CURLRef url_;
  plinth::CStringRef client_ = plinth::CSTR("app");
  tovan::CNFSSharedStoragePublisherRef publisher_ = plinth::makeShared<tovan::CNFSSharedStoragePublisher>();
};

// The median of the single times, in microseconds.
double median(std::vector<double> times) {
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

template <class Work>
double timeOf(Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

// Turn by turn, so that what else the machine does meets both alike.
void compare(const char* what, const std::string& parent, int rounds) {
  const Place ours(parent);
  const Place theirs(parent);
  Publishing publishing(ours);
  ByHand byHand(theirs);
  std::vector<double> publishingTimes;
  std::vector<double> byHandTimes;
  for (int round = 0; round < rounds; ++round) {
    publishingTimes.push_back(timeOf(publishing));
    byHandTimes.push_back(timeOf(byHand));
  }
  const double publishingTime = median(publishingTimes);
  const double byHandTime = median(byHandTimes);
  std::printf("publish and unpublish among %d exports, %s: %.0f us; reading and replacing by hand %.0f us: %.2fx\n",
              kExports, what, publishingTime, byHandTime, publishingTime / byHandTime);
}

}  // namespace

int main() {
  compare("on disk", std::filesystem::temp_directory_path().string(), 100);
  if (::access("/dev/shm", W_OK) == 0) compare("in memory", "/dev/shm", 1000);
}
