// Room for the bytes of one text while a call lasts: in place unless there are many.
#ifndef TEXTBUFFER_H
#define TEXTBUFFER_H

#include <cstddef>
#include <memory>

class TextBuffer {
public:
    // The bytes are not initialised.
    explicit TextBuffer(std::size_t bytes)
        : long_(bytes > sizeof short_ ? new char[bytes] : nullptr) {}
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    char* data() { return long_ != nullptr ? long_.get() : short_; }
    const char* data() const { return long_ != nullptr ? long_.get() : short_; }

private:
    std::unique_ptr<char[]> long_;
    char short_[256];
};

#endif
