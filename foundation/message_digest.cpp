#include <tovan/message_digest.h>

#include <plinth/exception.h>
#include <plinth/input_output_stream.h>

#include "foundation/crypto_library.h"

#include <array>
#include <memory>
#include <string>
#include <utility>

namespace tovan {

using namespace plinth;

namespace {

constexpr std::size_t kPieceSize = 8192;

// By code, the first being 1. SHA-0 has no provider in OpenSSL 3; its name stands for those to come.
constexpr std::array<const char*, 6> kNames = {"MD2", "MD5", "SHA", "SHA1", "MDC2", "RIPEMD160"};

const char* algorithmName(unsigned long kind) {
  // The code is deliberately shown as a signed number.
  if (kind < 1 || kind > kNames.size()) {
    throw CParamException("Invalid message digest kind: %ld", static_cast<long>(kind));
  }
  return kNames[kind - 1];
}

template <class Ref>
const Ref& checked(const Ref& source, const char* name) {
  if (source.isNull()) throw CNullPointerException("Error: %s is null!", name);
  return source;
}

void check(int result, const char* function) {
  if (result != 1) throw CParamException("%s() failed", function);
}

crypto::Library& loadedLibrary() {
  crypto::Library* const library = crypto::library();
  if (library == nullptr) throw CNullPointerException("Error: md is null!");
  return *library;
}

// One digest in the making.
class Computation {
 public:
  explicit Computation(const char* algorithm)
      : library_(loadedLibrary()),
        algorithm_(crypto::fetchDigest(library_, algorithm), call_.EVP_MD_free),
        context_(nullptr, call_.EVP_MD_CTX_free) {
    if (algorithm_ == nullptr) throw CNullPointerException("Error: md is null!");
    const crypto::ErrorMark mark(call_);
    context_.reset(call_.EVP_MD_CTX_new());
    check(context_ == nullptr ? 0 : call_.EVP_DigestInit_ex(context_.get(), algorithm_.get(), nullptr),
          "EVP_DigestInit_ex");
  }

  void update(const void* bytes, std::size_t size) {
    const crypto::ErrorMark mark(call_);
    check(call_.EVP_DigestUpdate(context_.get(), bytes, size), "EVP_DigestUpdate");
  }

  CBufferRef finish() {
    const crypto::ErrorMark mark(call_);
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int size = 0;
    check(call_.EVP_DigestFinal_ex(context_.get(), bytes.data(), &size), "EVP_DigestFinal_ex");
    CBufferRef result = makeShared<CBuffer>(bytes.data(), size);
    // The message keeps the name that the function had before OpenSSL 1.1.
    check(call_.EVP_MD_CTX_reset(context_.get()), "EVP_MD_CTX_cleanup");
    return result;
  }

 private:
  crypto::Library& library_;
  const crypto::Functions& call_ = library_.functions;
  std::unique_ptr<EVP_MD, decltype(&::EVP_MD_free)> algorithm_;
  std::unique_ptr<EVP_MD_CTX, decltype(&::EVP_MD_CTX_free)> context_;
};

void addFile(Computation& computation, const CURLRef& url, const CMessageDigest::Progress& progress) {
  const CInputOutputStreamRef file = CInputOutputStream::NewInputOutput(url, CInputOutputStream::Mode::read);
  CBuffer piece;
  std::uint64_t done = 0;
  while (file->read(piece, kPieceSize) > 0) {
    computation.update(piece.data(), piece.size());
    done += piece.size();
    if (progress) progress(done);
  }
}

}  // namespace

CMessageDigest::CMessageDigest(const CURLRef& fileURL, unsigned long kind) : CMessageDigest(fileURL, kind, nullptr) {}

CMessageDigest::CMessageDigest(const CURLRef& fileURL, unsigned long kind, Progress progress)
    : fileURL_(checked(fileURL, "fileURL")), kind_(kind), progress_(std::move(progress)) {
  digest();
}

CMessageDigest::CMessageDigest(const CStringRef& message, unsigned long kind)
    : message_(checked(message, "message")), kind_(kind) {
  digest();
}

CMessageDigest::CMessageDigest(const CBufferRef& buffer, unsigned long kind)
    : buffer_(checked(buffer, "buffer")), kind_(kind) {
  digest();
}

CMessageDigest::CMessageDigest(const CMessageDigest&) = default;
CMessageDigest& CMessageDigest::operator=(const CMessageDigest&) = default;
CMessageDigest::~CMessageDigest() = default;

void CMessageDigest::digest() {
  result_ = nullptr;
  Computation computation(algorithmName(kind_));
  if (!fileURL_.isNull()) {
    addFile(computation, fileURL_, progress_);
  } else if (!message_.isNull()) {
    const std::string bytes = message_->str();
    computation.update(bytes.data(), bytes.size());
  } else {
    computation.update(buffer_->data(), buffer_->size());
  }
  result_ = computation.finish();
}

CStringRef CMessageDigest::hexText() const {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; !result_.isNull() && i < result_->size(); ++i) {
    const unsigned int byte = result_->data()[i];
    text += {kDigits[byte >> 4U], kDigits[byte & 0xFU]};
  }
  return CString::nullToEmptyString(CSTR(text));
}

}  // namespace tovan
