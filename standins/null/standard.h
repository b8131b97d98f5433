// What the messaging library needs of the C++ library, as plain functions.
#ifndef NULL_STANDARD_H
#define NULL_STANDARD_H

#include <stddef.h>

struct Participant {
    char id[32];
    size_t idSize; // with its final NUL
};

struct Flood {
    size_t count;
    size_t size;
    size_t listener;
};

extern "C" {

void* memcpy(void* to, const void* from, size_t size);
int strncmp(const char* one, const char* other, size_t size);
void* memset(void* memory, int byte, size_t size);

// The one of that number, until the process ends.
Participant* newParticipant(size_t number);
Flood* newFlood(const Flood& flood);
void freeFlood(void* flood);

// From 0 on.
size_t nextListenerNumber();

size_t readNumber(const char* text);
// Whether the text is ":<count>:<size>:<listener>".
bool readFlood(const char* text, Flood* flood);

// After all that it has been given before.
void runOnLibraryThread(void (*task)(void* context), void* context);

} // extern "C"

#endif
