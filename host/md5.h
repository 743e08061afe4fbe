#ifndef KEELSTONE_HOST_MD5_H
#define KEELSTONE_HOST_MD5_H

#include <memory>
#include <string>
#include <string_view>

namespace keelstone::host {

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

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_MD5_H
