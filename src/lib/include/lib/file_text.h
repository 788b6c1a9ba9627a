/// Whole files as texts. Every function may be called from any thread.
#pragma once

#include <string>

namespace jobm {

/// Reads all of `path` into `text`. Returns false (and leaves `text` empty) when it can't be read;
/// errno then says why.
bool readFile(const std::string& path, std::string& text);

/// Replaces the content of `path`. Returns false when it can't be opened or not all of it was
/// written; errno then says why.
bool writeFile(const std::string& path, const std::string& text);

}  // namespace jobm
