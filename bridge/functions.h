// The contracts' classes as plain functions, for a program and a library whose compilers do not share an interface for
// C++. The library's compiler puts the functions on the library's objects (suite/), the program's compiler puts the
// contracts' classes on the functions (module/), and C is what both speak.
//
// - An object of the other compiler's is an address without a type; that of a message is that of its BrivonMessage.
// - A "room" is memory of the caller's in which an object is made. Its true size is known to the library alone.
// - Nothing here throws: a function answers null, or what was thrown behind it, which goes to free().
// - Any thread may call what the contract lets it call.
#ifndef BRIDGE_FUNCTIONS_H
#define BRIDGE_FUNCTIONS_H

#include <stddef.h>
#include <stdint.h>

struct BrivonThrown {
    bool isStandard; // derived from std::exception
    char text[1];    // what such an exception says, as long as it is
};

enum BrivonText : int32_t {
    kEndPointId,
    kEndPointAppId,
    kEndPointAppVersion,
    kMessageType,
    kMessageAppId,
    kMessageAppVersion,
    kSuiteMessagePayload,
    kErrorMessageError,
    kErrorMessageFault,
};

// What a library calls on threads of its own: a listener, with a message, or an endpoints callback, with null.
struct BrivonCallee {
    BrivonThrown* (*call)(BrivonCallee* callee, const void* message);
};

// Room for a listener of the library's side, which is made by us but derived from a class of the library's.
constexpr size_t kListenerRoom = 512;

extern "C" {

BrivonThrown* brivon_textSize(BrivonText text, const void* object, size_t* size);
BrivonThrown* brivon_text(BrivonText text, const void* object, char* buffer);
BrivonThrown* brivon_setText(BrivonText text, void* object, const char* value);

BrivonThrown* brivon_EndPoint_construct(void* room);
BrivonThrown* brivon_EndPoint_copy(void* room, const void* other);
BrivonThrown* brivon_EndPoint_assign(void* endPoint, const void* other);
BrivonThrown* brivon_EndPoint_destroy(void* endPoint);
// Endpoints at that distance from each other: copies of others, or new ones when there are none. Counts those made,
// also when it is left early.
BrivonThrown* brivon_EndPoints_make(void* array, size_t distance, const void* const* others, size_t count,
                                    size_t* made);
BrivonThrown* brivon_EndPoints_destroy(void* array, size_t distance, size_t count);

const char* brivon_SuiteMessage_TYPE_PREFIX();
const char* brivon_ErrorMessage_TYPE();
BrivonThrown* brivon_SuiteMessage_construct(void* room, const char* type);
BrivonThrown* brivon_SuiteMessage_destroy(void* message);
BrivonThrown* brivon_SuiteMessage_SetSource(void* message, const void* source);
BrivonThrown* brivon_SuiteMessage_GetSource(const void* message, void* room);
// Both arrays hold endpoints of the library's, as far from each other as the library has them.
BrivonThrown* brivon_SuiteMessage_SetDestinations(void* message, const void* array, size_t count);
BrivonThrown* brivon_SuiteMessage_GetDestinations(const void* message, void* array);
BrivonThrown* brivon_SuiteMessage_GetDestinationCount(const void* message, size_t* count);

// Calls the callee for every message that it receives. There is nothing to destroy.
BrivonThrown* brivon_Listener_construct(void* room, BrivonCallee* callee);

BrivonThrown* brivon_Dispatcher_SetConfig(const char* first, const char* second, int32_t* status);
BrivonThrown* brivon_Dispatcher_GetInstance(void** dispatcher, int32_t* status);
BrivonThrown* brivon_Dispatcher_ReleaseInstance();
BrivonThrown* brivon_Dispatcher_Send(void* dispatcher, const void* message, int32_t* status);
BrivonThrown* brivon_Dispatcher_AddMessageListener(void* dispatcher, void* listener);
BrivonThrown* brivon_Dispatcher_RemoveMessageListener(void* dispatcher, void* listener);
BrivonThrown* brivon_Dispatcher_AddErrorListener(void* dispatcher, void* listener);
BrivonThrown* brivon_Dispatcher_RemoveErrorListener(void* dispatcher, void* listener);
// A callee stands for one callback with one context.
BrivonThrown* brivon_Dispatcher_RegisterEndPointsCallback(void* dispatcher, BrivonCallee* callee);
BrivonThrown* brivon_Dispatcher_UnregisterEndPointsCallback(void* dispatcher, BrivonCallee* callee);
BrivonThrown* brivon_Dispatcher_RefreshEndPoints(void* dispatcher);
BrivonThrown* brivon_Dispatcher_IsRefreshing(void* dispatcher, bool* answer);
BrivonThrown* brivon_Dispatcher_GetSelfEndPoint(void* dispatcher, void* room);
BrivonThrown* brivon_Dispatcher_IsReady(void* dispatcher, bool* answer);
BrivonThrown* brivon_Dispatcher_GetEndPoints(void* dispatcher, void** array, size_t* count);
BrivonThrown* brivon_Dispatcher_ReleaseEndPoints(void* dispatcher, void* array);

const char* brivon_ConfigAttribute_KESTA_ZORP_DIR();
BrivonThrown* brivon_Controller_GetInstance(void** controller, int32_t* status);
BrivonThrown* brivon_Controller_ReleaseInstance();
BrivonThrown* brivon_Controller_SetConfig(const char* first, const char* second, int32_t* status);
BrivonThrown* brivon_Controller_SetConfigEx(const char** attributes, int32_t* status);
BrivonThrown* brivon_Controller_LaunchApp(void* controller, const char* targetSpecifier, bool setFocus,
                                          const char* cmdLineArgs, bool* answer);
BrivonThrown* brivon_Controller_IsAppInstalled(void* controller, const char* targetSpecifier, bool* answer);
BrivonThrown* brivon_Controller_IsAppRunning(void* controller, const char* targetSpecifier, bool* answer);
BrivonThrown* brivon_Controller_IsAppRunningByName(void* controller, const char* name, bool* answer);
BrivonThrown* brivon_Controller_GetAppPath(void* controller, const char* targetSpecifier, char** path);
BrivonThrown* brivon_Controller_ReleaseAppPath(void* controller, char* path);
BrivonThrown* brivon_Controller_GetSpecifiers(void* controller, char*** list, size_t* count);
BrivonThrown* brivon_Controller_ReleaseSpecifiers(void* controller, char** list, size_t count);
BrivonThrown* brivon_Controller_GetProcessId(void* controller, const char* targetSpecifier, int32_t* answer);

} // extern "C"

#endif
