// What libcrypto may refuse, one function after the other, and what it is asked for.
#include "foundation/crypto_library.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <plinth/exception.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/foundation/message_digest_support.h"
#include "tests/foundation/plinth_text.h"

namespace {

using namespace plinth;
using namespace test;
using tovan::crypto::Library;

// A libcrypto of the test's own in place of the loaded one: its functions may be replaced, and it begins without a
// context.
class CryptoLibraryTest : public testing::Test {
 protected:
  void SetUp() override {
    Library* const real = tovan::crypto::library();
    ASSERT_NE(real, nullptr) << "this host has no libcrypto";
    library_.functions = real->functions;
    tovan::crypto::setLibraryForTesting(&library_);
    asked().clear();
    pieces().clear();
  }
  void TearDown() override {
    tovan::crypto::setLibraryForTesting(nullptr);
    for (OSSL_PROVIDER* const provider : {library_.defaultProvider, library_.legacyProvider}) {
      if (provider != nullptr) function<decltype(&::OSSL_PROVIDER_unload)>("OSSL_PROVIDER_unload")(provider);
    }
    if (library_.context != nullptr) function<decltype(&::OSSL_LIB_CTX_free)>("OSSL_LIB_CTX_free")(library_.context);
  }

  // A function of the loaded libcrypto that the library itself does not use.
  template <class Function>
  static Function function(const char* name) {
    void* const opened = ::dlopen("libcrypto.so.3", RTLD_NOW | RTLD_NOLOAD);
    EXPECT_NE(opened, nullptr);
    return reinterpret_cast<Function>(::dlsym(opened, name));
  }

  static std::string failure() {
    return messageOf<CParamException>([] { digestOfText("abc", 2); });
  }
  static std::string nullFailure(unsigned long kind = 2) {
    return messageOf<CNullPointerException>([kind] { digestOfText("abc", kind); });
  }

  static std::vector<std::string>& asked() {
    static std::vector<std::string> names;
    return names;
  }
  static std::vector<std::pair<const void*, std::size_t>>& pieces() {
    static std::vector<std::pair<const void*, std::size_t>> list;
    return list;
  }

  Library library_;
};

TEST_F(CryptoLibraryTest, AnInitialisationThatFailsSaysSo) {
  library_.functions.EVP_DigestInit_ex = [](EVP_MD_CTX*, const EVP_MD*, ENGINE*) { return 0; };
  EXPECT_EQ(failure(), "EVP_DigestInit_ex() failed");
  library_.functions.EVP_DigestInit_ex = [](EVP_MD_CTX*, const EVP_MD*, ENGINE*) { return 2; };
  EXPECT_EQ(failure(), "EVP_DigestInit_ex() failed") << "anything but 1 is a failure";
}

TEST_F(CryptoLibraryTest, AContextThatCannotBeMadeIsAFailedInitialisation) {
  library_.functions.EVP_MD_CTX_new = []() -> EVP_MD_CTX* { return nullptr; };
  EXPECT_EQ(failure(), "EVP_DigestInit_ex() failed");
}

TEST_F(CryptoLibraryTest, AnUpdateThatFailsSaysSo) {
  library_.functions.EVP_DigestUpdate = [](EVP_MD_CTX*, const void*, size_t) { return -1; };
  EXPECT_EQ(failure(), "EVP_DigestUpdate() failed");
}

TEST_F(CryptoLibraryTest, AnEndThatFailsSaysSo) {
  library_.functions.EVP_DigestFinal_ex = [](EVP_MD_CTX*, unsigned char*, unsigned int*) { return 0; };
  EXPECT_EQ(failure(), "EVP_DigestFinal_ex() failed");
}

TEST_F(CryptoLibraryTest, ACleanUpThatFailsSaysSo) {
  library_.functions.EVP_MD_CTX_reset = [](EVP_MD_CTX*) { return 0; };
  EXPECT_EQ(failure(), "EVP_MD_CTX_cleanup() failed");
}

TEST_F(CryptoLibraryTest, ALaterFailureLeavesNoResult) {
  CMessageDigest digest(CSTR("abc"), 2);
  library_.functions.EVP_MD_CTX_reset = [](EVP_MD_CTX*) { return 0; };
  EXPECT_THROW(digest.digest(), CParamException);
  EXPECT_TRUE(digest.result().isNull());
}

TEST_F(CryptoLibraryTest, WithoutAContextOrTheDefaultProviderThereIsNoAlgorithm) {
  const auto makeContext = library_.functions.OSSL_LIB_CTX_new;
  library_.functions.OSSL_LIB_CTX_new = []() -> OSSL_LIB_CTX* { return nullptr; };
  EXPECT_EQ(nullFailure(), "Error: md is null!");
  library_.functions.OSSL_LIB_CTX_new = makeContext;
  library_.functions.OSSL_PROVIDER_load = [](OSSL_LIB_CTX*, const char*) -> OSSL_PROVIDER* { return nullptr; };
  EXPECT_EQ(nullFailure(), "Error: md is null!");
  EXPECT_NE(library_.context, nullptr);
  EXPECT_EQ(library_.defaultProvider, nullptr);
}

TEST_F(CryptoLibraryTest, AFailureIsNotRemembered) {
  const auto fetch = library_.functions.EVP_MD_fetch;
  library_.functions.EVP_MD_fetch = [](OSSL_LIB_CTX*, const char*, const char*) -> EVP_MD* { return nullptr; };
  EXPECT_EQ(nullFailure(), "Error: md is null!");
  library_.functions.EVP_MD_fetch = fetch;
  EXPECT_EQ(digestOfText("abc", 2), "900150983cd24fb0d6963f7d28e17f72");
}

TEST_F(CryptoLibraryTest, EachKindHasItsAlgorithm) {
  library_.functions.EVP_MD_fetch = [](OSSL_LIB_CTX*, const char* name, const char*) -> EVP_MD* {
    asked().emplace_back(name);
    return nullptr;
  };
  library_.functions.OSSL_PROVIDER_load = [](OSSL_LIB_CTX*, const char* name) -> OSSL_PROVIDER* {
    asked().emplace_back(std::string("provider ") + name);
    static int one = 0;
    return reinterpret_cast<OSSL_PROVIDER*>(&one);
  };
  for (unsigned long kind = 1; kind <= 6; ++kind) EXPECT_EQ(nullFailure(kind), "Error: md is null!");
  library_.defaultProvider = nullptr;  // none of libcrypto's
  library_.legacyProvider = nullptr;
  EXPECT_EQ(asked(), (std::vector<std::string>{"provider default", "MD2", "provider legacy", "MD2", "MD5", "SHA",
                                               "SHA1", "MDC2", "RIPEMD160"}));
}

// MDC-2 lives there in the builds that have it; MD4 does in all of them.
TEST_F(CryptoLibraryTest, TheLegacyProviderServesWhatTheDefaultOneLacks) {
  const auto known = [this](const char* name) {
    EVP_MD* const found = tovan::crypto::fetchDigest(library_, name);
    library_.functions.EVP_MD_free(found);
    return found != nullptr;
  };
  EXPECT_TRUE(known("MD5"));
  EXPECT_EQ(library_.legacyProvider, nullptr) << "not loaded before it is needed";
  EXPECT_TRUE(known("MD4"));
  EXPECT_NE(library_.legacyProvider, nullptr);
  EXPECT_TRUE(known("SHA1")) << "both at once";
  EXPECT_FALSE(known("no such thing"));
}

TEST_F(CryptoLibraryTest, AFileGoesInThroughOneBuffer) {
  const std::string path = scratchFolder("digest") + "/file";
  writeFile(path, std::string(8192 * 3 + 1, 'x'));
  static decltype(&::EVP_DigestUpdate) update;
  update = library_.functions.EVP_DigestUpdate;
  library_.functions.EVP_DigestUpdate = [](EVP_MD_CTX* context, const void* bytes, size_t size) {
    pieces().emplace_back(bytes, size);
    return update(context, bytes, size);
  };
  const std::string digest = digestOfFile(path, 2);
  ASSERT_EQ(pieces().size(), 4U);
  std::set<const void*> buffers;
  for (const auto& [bytes, size] : pieces()) buffers.insert(bytes);
  EXPECT_EQ(buffers.size(), 1U);
  EXPECT_EQ(pieces()[0].second, 8192U);
  EXPECT_EQ(pieces()[3].second, 1U);
  pieces().clear();
  EXPECT_EQ(digestOfBytes(std::string(8192 * 3 + 1, 'x'), 2), digest);
  EXPECT_EQ(pieces().size(), 1U) << "a buffer goes in at once";
}

TEST_F(CryptoLibraryTest, TheHostsErrorQueueStaysAsItWas) {
  const auto oldest = function<decltype(&::ERR_peek_error)>("ERR_peek_error");
  const auto newest = function<decltype(&::ERR_peek_last_error)>("ERR_peek_last_error");
  const auto clear = function<decltype(&::ERR_clear_error)>("ERR_clear_error");
  clear();
  EXPECT_EQ(nullFailure(1), "Error: md is null!");
  EXPECT_EQ(oldest(), 0UL) << "a failure of ours shows in the host's queue";
  EXPECT_EQ(library_.functions.EVP_MD_fetch(library_.context, "host", nullptr), nullptr);
  const unsigned long own = oldest();
  const unsigned long last = newest();
  ASSERT_NE(own, 0UL);
  EXPECT_EQ(nullFailure(1), "Error: md is null!");
  EXPECT_EQ(digestOfText("abc", 2), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(oldest(), own);
  EXPECT_EQ(newest(), last);
  clear();
}

}  // namespace
