/// What a package needs of cryptography, for the local gateway and the tests. Apart from
/// the service's own code: a mistake there must not cancel itself out here. Any thread.
#pragma once

#include <string>

namespace gateway {

/// The MD5 sum of `text` as 32 lower-case hexadecimal digits; "" on failure.
std::string md5Of(const std::string& text);

/// The same of a file's content; "" also when it can't be read.
std::string md5OfFile(const std::string& path);

/// `text` encrypted with AES-256-CBC and PKCS#7 padding, as one line of base64. The key is the
/// first 32 bytes of `secret`, the vector its first 16, both filled up with zero bytes. "" on
/// failure.
std::string seal(const std::string& text, const std::string& secret);

}  // namespace gateway
