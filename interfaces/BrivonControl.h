// The binary contract of the application control library BrivonControl, as seen by a program that uses it.
//
// All strings are NUL-terminated UTF-8. Those passed in are borrowed for one call; those handed out belong to the
// library and go back through its release operations.
//
// Virtual operations are declared in slot order, which is part of the contract: append nothing, reorder nothing, and
// give no interface a virtual destructor (it takes one slot with one compiler and two with another).
#ifndef BRIVON_CONTROL_H
#define BRIVON_CONTROL_H

#include <stddef.h>
#include <stdint.h>

#if defined(BRIVON_LINKED_IN) // the classes are part of the program itself
#define BRIVON_CONTROL_API
#elif !defined(_WIN32)
#define BRIVON_CONTROL_API __attribute__((visibility("default")))
#elif defined(BRIVON_CONTROL_BUILD)
#define BRIVON_CONTROL_API __declspec(dllexport)
#else
#define BRIVON_CONTROL_API __declspec(dllimport)
#endif

// 32 bits wide; any other value is a failure.
enum BrivonControlErrorCode : int32_t {
    BrivonControlErrorCode_Success = 0,
};

namespace kesta::brivon::api5 {

// Names of configuration attributes.
class BRIVON_CONTROL_API IConfigAttribute {
public:
    // The folder of the library and of the suite.
    static const char* const KESTA_ZORP_DIR;
};

// The controller: one per process, owned and counted by the library. Its operations may be called on several threads at
// once.
class BRIVON_CONTROL_API IBrivonController {
public:
    static BrivonControlErrorCode GetInstance(IBrivonController** controller);
    // One call for each GetInstance that gave a controller.
    static void ReleaseInstance();
    static BrivonControlErrorCode SetConfig(const char* first, const char* second);
    // Attribute names and values in turn, ended by a null pointer.
    static BrivonControlErrorCode SetConfigEx(const char** attributes);

    virtual void Reserved0() = 0;                                                                    // slot 0: not used
    virtual bool LaunchApp(const char* targetSpecifier, bool setFocus, const char* cmdLineArgs) = 0; // slot 1
    virtual bool IsAppInstalled(const char* targetSpecifier) = 0;                                    // slot 2
    virtual bool IsAppRunning(const char* targetSpecifier) = 0;                                      // slot 3
    virtual bool IsAppRunningByName(const char* name) = 0;                                           // slot 4
    // Leaves the pointer as it is when there is no path.
    virtual void GetAppPath(const char* targetSpecifier, char** path) = 0; // slot 5
    virtual void ReleaseAppPath(char* path) = 0;                           // slot 6
    // Always fills both.
    virtual void GetSpecifiers(char*** list, size_t* count) = 0;   // slot 7
    virtual void ReleaseSpecifiers(char** list, size_t count) = 0; // slot 8
    virtual int32_t GetProcessId(const char* targetSpecifier) = 0; // slot 9

protected:
    ~IBrivonController() = default;
};

} // namespace kesta::brivon::api5

#endif
