// message_digest.h: CMessageDigest, the fingerprint of a file, a string or a buffer, computed when the object is made.
//
// The algorithms are libcrypto's (OpenSSL 3), from a library context of this library's own: which providers and
// properties the host program or the system's openssl.cnf chose has no part in it. libcrypto still looks for a default
// engine, and reads openssl.cnf for it, as it does for every program. The calling thread's error queue stays as it is.
// libcrypto is loaded with the first digest of a process, its legacy provider with the first kind that the default one
// lacks.
//
// A kind that the installed libcrypto lacks is a failure, "Error: md is null!". On Debian 12 these are MD2, SHA-0 and
// MDC-2: libcrypto has had no SHA-0 since OpenSSL 1.1, and MD2 and MDC-2 are in the legacy provider of builds that
// switch them on, which Debian's does not. Where there is no libcrypto.so.3 at all, every kind fails so.
//
// None of these kinds protects against somebody who wants two contents to have one digest. They tell contents apart
// that nobody forged.
//
// Threads: one object belongs to one thread at a time; any number of threads may compute at once, while the process
// exits too. For that, a process whose first use of libcrypto is a digest of this class does not run libcrypto's
// clean-up at exit; a program that needs it calls OPENSSL_cleanup() itself, or uses libcrypto before.
#pragma once

#include <plinth/buffer.h>
#include <plinth/string.h>
#include <plinth/url.h>
#include <tovan/export.h>

#include <cstdint>
#include <functional>

namespace tovan {

class TOVAN_EXPORT CMessageDigest {
 public:
  // The codes are part of the interface.
  enum Kind : unsigned long {
    kMD2 = 1,
    kMD5 = 2,
    kSHA0 = 3,
    kSHA1 = 4,
    kMDC2 = 5,
    kRIPEMD160 = 6,
  };
  // Told how many bytes of the file went in so far, after each piece of 8192 bytes. What it throws ends the computation
  // and goes on to the caller.
  using Progress = std::function<void(std::uint64_t bytes)>;

  // The constructors compute the digest: of the file's contents, read as it is at that moment; of the string in UTF-8
  // without a terminator, U+0000 included (the empty string is a message of no bytes; a lone surrogate reads as "?");
  // of the buffer's bytes.
  //
  // Throw plinth::CNullPointerException "Error: fileURL is null!", "Error: message is null!" or "Error: buffer is
  // null!" for an empty holder, before anything else; then what digest() throws.
  CMessageDigest(const plinth::CURLRef& fileURL, unsigned long kind);
  CMessageDigest(const plinth::CURLRef& fileURL, unsigned long kind, Progress progress);
  CMessageDigest(const plinth::CStringRef& message, unsigned long kind);
  CMessageDigest(const plinth::CBufferRef& buffer, unsigned long kind);
  CMessageDigest(const CMessageDigest&);
  CMessageDigest& operator=(const CMessageDigest&);
  ~CMessageDigest();

  // Computes the digest again, from what the source holds now. A failure leaves no result.
  //
  // Throws, in this order: CParamException "Invalid message digest kind: CODE" for a code outside 1 to 6;
  // CNullPointerException "Error: md is null!" for a kind that the installed libcrypto lacks; CParamException
  // "EVP_DigestInit_ex() failed"; for a file what CInputOutputStream throws when it cannot be opened or read (a folder,
  // a FIFO and a socket cannot); CParamException "EVP_DigestUpdate() failed", "EVP_DigestFinal_ex() failed" or
  // "EVP_MD_CTX_cleanup() failed", when libcrypto refuses.
  void digest();

  // The raw digest: 16 bytes for MD2, MD5 and MDC-2, 20 for the others. Shared with this object: copy it to change it.
  // An empty holder after a digest() that failed.
  const plinth::CBufferRef& result() const noexcept { return result_; }
  // The same in lower-case hexadecimal digits.
  plinth::CStringRef hexText() const;
  unsigned long kind() const noexcept { return kind_; }

 private:
  plinth::CURLRef fileURL_;
  plinth::CStringRef message_;
  plinth::CBufferRef buffer_;
  unsigned long kind_;
  Progress progress_;
  plinth::CBufferRef result_;
};

}  // namespace tovan
