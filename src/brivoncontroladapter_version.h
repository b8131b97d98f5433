// The product version that an executable declares in its version resource. Any thread.
#ifndef BRIVONCONTROLADAPTER_VERSION_H
#define BRIVONCONTROLADAPTER_VERSION_H

#include "platform.h"

#include <memory>
#include <optional>
#include <string>

// Null when the text cannot be converted.
std::unique_ptr<WCHAR[]> toWide(const char* utf8);

// Reads the file at the path; nothing when it declares no version, whatever the reason.
std::optional<std::string> readProductVersion(const platform::WideString& path);

// The ProductVersion of the first translation, in table order, that has one. The block is one that GetFileVersionInfoW
// has filled.
std::optional<std::string> findProductVersion(const void* block);

#endif
