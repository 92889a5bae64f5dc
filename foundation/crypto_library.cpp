#include "foundation/crypto_library.h"

#include <dlfcn.h>
#include <openssl/crypto.h>
#include <openssl/opensslv.h>

#include <atomic>

namespace tovan::crypto {
namespace {

#define TOVAN_TEXT_OF(number) #number
#define TOVAN_EXPANDED_TEXT_OF(number) TOVAN_TEXT_OF(number)
constexpr const char* kLibrary = "libcrypto.so." TOVAN_EXPANDED_TEXT_OF(OPENSSL_SHLIB_VERSION);
#undef TOVAN_EXPANDED_TEXT_OF
#undef TOVAN_TEXT_OF

constinit Library theLibrary;
constinit std::atomic<Library*> loaded{nullptr};
constinit std::atomic<Library*> forTesting{nullptr};

template <class Function>
bool find(void* library, const char* name, Function& function) noexcept {
  function = reinterpret_cast<Function>(::dlsym(library, name));
  return function != nullptr;
}

bool findAll(void* library, Functions& all) noexcept {
#define TOVAN_FIND(name) find(library, #name, all.name)
  return TOVAN_FIND(OSSL_LIB_CTX_new) && TOVAN_FIND(OSSL_PROVIDER_load) && TOVAN_FIND(EVP_MD_fetch) &&
         TOVAN_FIND(EVP_MD_free) && TOVAN_FIND(EVP_MD_CTX_new) && TOVAN_FIND(EVP_MD_CTX_reset) &&
         TOVAN_FIND(EVP_MD_CTX_free) && TOVAN_FIND(EVP_DigestInit_ex) && TOVAN_FIND(EVP_DigestUpdate) &&
         TOVAN_FIND(EVP_DigestFinal_ex) && TOVAN_FIND(ERR_set_mark) && TOVAN_FIND(ERR_pop_to_mark);
#undef TOVAN_FIND
}

// Threads may be computing while the process exits. Where this library is the first to use libcrypto, it keeps
// libcrypto from freeing at exit what they compute with; the system takes the memory back.
bool begin(void* library) noexcept {
  decltype(&::OPENSSL_init_crypto) initialise = nullptr;
  return find(library, "OPENSSL_init_crypto", initialise) && initialise(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1;
}

// With the mutex held. Null without the default provider.
OSSL_LIB_CTX* contextOf(Library& library) noexcept {
  const Functions& call = library.functions;
  if (library.context == nullptr) library.context = call.OSSL_LIB_CTX_new();
  if (library.context != nullptr && library.defaultProvider == nullptr) {
    library.defaultProvider = call.OSSL_PROVIDER_load(library.context, "default");
  }
  return library.defaultProvider == nullptr ? nullptr : library.context;
}

// With the mutex held. Whether the provider is there now and was not before.
bool addLegacyProvider(Library& library) noexcept {
  if (library.legacyProvider != nullptr) return false;
  library.legacyProvider = library.functions.OSSL_PROVIDER_load(library.context, "legacy");
  return library.legacyProvider != nullptr;
}

}  // namespace

Library* library() noexcept {
  if (Library* const replaced = forTesting.load(std::memory_order_acquire)) return replaced;
  if (Library* const known = loaded.load(std::memory_order_acquire)) return known;
  const std::lock_guard lock(theLibrary.mutex);
  if (loaded.load(std::memory_order_relaxed) == nullptr) {
    void* const opened = ::dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
    if (opened == nullptr || !findAll(opened, theLibrary.functions) || !begin(opened)) return nullptr;
    loaded.store(&theLibrary, std::memory_order_release);
  }
  return &theLibrary;
}

EVP_MD* fetchDigest(Library& library, const char* name) noexcept {
  const Functions& call = library.functions;
  const ErrorMark mark(call);
  const std::lock_guard lock(library.mutex);
  OSSL_LIB_CTX* const context = contextOf(library);
  if (context == nullptr) return nullptr;
  EVP_MD* found = call.EVP_MD_fetch(context, name, nullptr);
  if (found == nullptr && addLegacyProvider(library)) found = call.EVP_MD_fetch(context, name, nullptr);
  return found;
}

void setLibraryForTesting(Library* library) noexcept { forTesting.store(library, std::memory_order_release); }

}  // namespace tovan::crypto
