#ifndef KEELSTONE_BASE_TEXT_MD5_H
#define KEELSTONE_BASE_TEXT_MD5_H

#include <memory>
#include <string>
#include <string_view>

namespace keelstone {

/// Computes one MD5 digest piece by piece. std::runtime_error when the cryptographic
/// library refuses MD5 (as in some hardened set-ups). One thread.
class Md5 {
 public:
  Md5();
  ~Md5();
  Md5(const Md5&) = delete;
  Md5& operator=(const Md5&) = delete;

  void Update(std::string_view bytes);
  /// The digest in lower-case hexadecimal; once, at the end.
  std::string HexDigest();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

}  // namespace keelstone

#endif  // KEELSTONE_BASE_TEXT_MD5_H
