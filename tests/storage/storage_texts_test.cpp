// The texts for people.
#include <tovan/shared_storage.h>

#include <plinth/exception.h>

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;
using tovan::ISharedStorage;

const std::map<std::string, int> kPlacesByKey = {
    {"ExFATExportNotSupported", 1},
    {"WritePermissionsMissingForFolder", 1},
    {"CreateDirectoryErrorFormat", 2},
    {"SharedStorageClient_publish_timed_out", 1},
    {"SharedStorageClient_unpublish_timed_out", 1},
    {"SharedStorageClient_getServerPort_timed_out", 1},
    {"SharedStorageClient_subscribe_timed_out", 1},
    {"SharedStorageClient_unsubscribe_timed_out", 1},
};

int conversionsIn(const std::string& format) {
  int count = 0;
  for (std::size_t at = format.find('%'); at != std::string::npos; at = format.find('%', at + 1)) {
    EXPECT_EQ(format.substr(at, 2), "%@") << format;
    ++count;
  }
  return count;
}

TEST(StorageTextsTest, EveryKeyHasATextThatTakesWhatItIsGiven) {
  for (const auto& [key, places] : kPlacesByKey) {
    const std::string text = ISharedStorage::localizedStringForKey(CSTR(key))->str();
    EXPECT_NE(text, key) << "there is no text";
    EXPECT_EQ(conversionsIn(text), places) << key << ": " << text;
  }
}

TEST(StorageTextsTest, TextsOfTheTimeOutsNameTheStorage) {
  const CStringRef format = ISharedStorage::localizedStringForKey(CSTR("SharedStorageClient_publish_timed_out"));
  EXPECT_EQ(CString::sprintf(format->getStringRef(), CFSTR("file:///a"))->str(),
            "The storage \"file:///a\" could not be published: the cluster daemon did not answer in time.");
}

TEST(StorageTextsTest, UnknownKeyIsItsOwnText) {
  EXPECT_EQ(ISharedStorage::localizedStringForKey(CSTR("NoSuchKey"))->str(), "NoSuchKey");
}

TEST(StorageTextsTest, EmptyKeyIsRefused) {
  EXPECT_THROW(ISharedStorage::localizedStringForKey(nullptr), plinth::CNullPointerException);
}

}  // namespace
