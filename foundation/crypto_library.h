// crypto_library.h: the part of libcrypto that message digests need, loaded when the first of them is computed.
//
// It is not linked: every process of the cluster loads this library, few compute a digest, and libcrypto alone takes
// the loader about as long as all the rest (docs/performance.md).
#pragma once

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include <mutex>

namespace tovan::crypto {

// libcrypto's functions, under their own names.
struct Functions {
  decltype(&::OSSL_LIB_CTX_new) OSSL_LIB_CTX_new;
  decltype(&::OSSL_PROVIDER_load) OSSL_PROVIDER_load;
  decltype(&::EVP_MD_fetch) EVP_MD_fetch;
  decltype(&::EVP_MD_free) EVP_MD_free;
  decltype(&::EVP_MD_CTX_new) EVP_MD_CTX_new;
  decltype(&::EVP_MD_CTX_reset) EVP_MD_CTX_reset;
  decltype(&::EVP_MD_CTX_free) EVP_MD_CTX_free;
  decltype(&::EVP_DigestInit_ex) EVP_DigestInit_ex;
  decltype(&::EVP_DigestUpdate) EVP_DigestUpdate;
  decltype(&::EVP_DigestFinal_ex) EVP_DigestFinal_ex;
  decltype(&::ERR_set_mark) ERR_set_mark;
  decltype(&::ERR_pop_to_mark) ERR_pop_to_mark;
};

// The functions, and a library context that only this library uses. The providers are loaded when they are needed: the
// default one with the first algorithm, the legacy one with the first algorithm that the default one lacks.
struct Library {
  Functions functions{};
  std::mutex mutex{};  // guards what follows
  OSSL_LIB_CTX* context = nullptr;
  OSSL_PROVIDER* defaultProvider = nullptr;
  OSSL_PROVIDER* legacyProvider = nullptr;
};

// Null on a host without libcrypto, or with one that lacks any of the functions. What is loaded stays as long as the
// process lives; libcrypto cannot be unloaded anyway. Safe from any thread.
Library* library() noexcept;

// The digest algorithm of that name; null when libcrypto has none, and when memory or descriptors are short (the next
// call tries again). The caller gives it back with EVP_MD_free. Safe from any thread.
EVP_MD* fetchDigest(Library& library, const char* name) noexcept;

// For tests: this one in place of the loaded one; null puts that back.
void setLibraryForTesting(Library* library) noexcept;

// What libcrypto notes down about failures while the object lives is forgotten with it, so that the host program finds
// its thread's error queue as it left it.
class ErrorMark {
 public:
  explicit ErrorMark(const Functions& functions) noexcept : functions_(functions) { functions_.ERR_set_mark(); }
  ~ErrorMark() { functions_.ERR_pop_to_mark(); }
  ErrorMark(const ErrorMark&) = delete;
  ErrorMark& operator=(const ErrorMark&) = delete;

 private:
  const Functions& functions_;
};

}  // namespace tovan::crypto
