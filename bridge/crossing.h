// How an exception crosses the plain functions: guarded() on the side that throws makes a record of it, check() on the
// other throws that side's own. So no exception ever meets a frame of the other compiler's.
#ifndef BRIDGE_CROSSING_H
#define BRIDGE_CROSSING_H

#include "functions.h"
#include "runtime.h"

// Thrown in place of what is not derived from std::exception.
struct UnknownException {};

inline BrivonThrown* recordOf(bool isStandard, const char* text) {
    const size_t length = strlen(text);
    auto* thrown = static_cast<BrivonThrown*>(malloc(sizeof(BrivonThrown) + length));
    if (thrown == nullptr)
        __builtin_trap(); // no memory to say so with
    thrown->isStandard = isStandard;
    memcpy(thrown->text, text, length);
    thrown->text[length] = '\0';
    return thrown;
}

template <typename Body>
BrivonThrown* guarded(Body body) {
    try {
        body();
        return nullptr;
    } catch (const std::exception& exception) {
        const char* text = exception.what();
        return recordOf(true, text == nullptr ? "" : text);
    } catch (...) {
        return recordOf(false, "");
    }
}

[[noreturn]] inline void raise(BrivonThrown* thrown) {
    const struct Owner {
        BrivonThrown* thrown;
        ~Owner() { free(thrown); }
    } owner{thrown};
    if (thrown->isStandard)
        throw std::runtime_error(thrown->text);
    throw UnknownException();
}

inline void check(BrivonThrown* thrown) {
    if (thrown != nullptr)
        raise(thrown);
}

// For destructors, which have nobody to throw at.
inline void forget(BrivonThrown* thrown) {
    if (thrown != nullptr)
        free(thrown);
}

#endif
