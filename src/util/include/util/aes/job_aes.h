/// Decryption of job packages: AES-256-CBC under the gateway's device secret.
#pragma once

#include <cstddef>
#include <string>

namespace jobm {

/// Says where the device secret comes from. Main thread, once, before anything is decrypted;
/// without it there is no secret. The reader is called from the thread that decrypts.
void setDeviceSecretReader(std::string (*reader)());

/// Decrypts the base64 text `text` into `out`; a text that is moved in is not copied. Returns 0, or
/// -1 without a device secret, for a text that decodes to nothing and for padding longer than the
/// text. An empty text returns 0 and leaves `out` alone. The result isn't verified: a wrong secret
/// gives a wrong text. Any thread.
int aesJobDecrypt(std::string text, std::string& out);

/// Decrypts `length` bytes (whole blocks of 16; the rest is ignored) from `source` into
/// `destination`, which holds at least 17 bytes and one more than `length`, with a key of 32 and a
/// vector of 16 bytes. Both may be the same buffer. A source shorter than a block is filled up with
/// zeros. Returns the length without padding and puts a zero byte behind that; negative when the
/// padding is longer than the text (no zero byte then), 0 on failure. Any thread.
int vexa_aes_cbc_decrypt_256(const unsigned char* source, std::size_t length,
                             const unsigned char* key, unsigned char* destination,
                             const unsigned char* vector);

}  // namespace jobm
