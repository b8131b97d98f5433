// The binary contract of the messaging library BrivonMessage5, as seen by a program that uses it.
//
// Text fields. Every text field of a record has a pair of const accessors: Get<Field>Size answers the number of bytes
// of the value including its terminating NUL, and Get<Field> writes value and terminator into a buffer of the caller's
// of at least that many bytes. Setters copy a NUL-terminated text. All texts are UTF-8.
//
// Object layout. Every value class holds one pointer to storage of the library's beside its table of virtual
// operations; only the library looks behind it. Programs keep these objects by value and in contiguous arrays.
//
// Virtual operations are declared in slot order, which is part of the contract: append nothing, reorder nothing, and
// give no interface a virtual destructor (it takes one slot with one compiler and two with another).
#ifndef BRIVON_MESSAGE5_H
#define BRIVON_MESSAGE5_H

#include <stddef.h>
#include <stdint.h>

#if defined(BRIVON_LINKED_IN) // the classes are part of the program itself
#define BRIVON_MESSAGE5_API
#elif !defined(_WIN32)
#define BRIVON_MESSAGE5_API __attribute__((visibility("default")))
#elif defined(BRIVON_MESSAGE5_BUILD)
#define BRIVON_MESSAGE5_API __declspec(dllexport)
#else
#define BRIVON_MESSAGE5_API __declspec(dllimport)
#endif

// 32 bits wide. Any value other than these two is a failure without a meaning of its own to a program.
enum BrivonMessageErrorCode : int32_t {
    BrivonMessageErrorCode_Success = 0,
    // GetInstance: the dispatcher cannot be had yet, ask again later.
    BrivonMessageErrorCode_NotYetAvailable = 4,
};

namespace kesta::brivon::api5 {

// One participant on the bus. Copies are independent of each other.
class BRIVON_MESSAGE5_API EndPoint {
public:
    EndPoint();
    EndPoint(const EndPoint& other);
    EndPoint& operator=(const EndPoint& other);
    virtual ~EndPoint(); // slot 0, the only virtual operation

    // Unique id of the participant instance.
    void SetId(const char* id);
    size_t GetIdSize() const;
    void GetId(char* id) const;

    void SetAppId(const char* appId);
    size_t GetAppIdSize() const;
    void GetAppId(char* appId) const;

    void SetAppVersion(const char* appVersion);
    size_t GetAppVersionSize() const;
    void GetAppVersion(char* appVersion) const;

protected:
    void* fields_;
};

// Base of every message. A received BrivonMessage is used unchanged as a SuiteMessage or an ErrorMessage once its type
// says which of them it is.
class BRIVON_MESSAGE5_API BrivonMessage {
public:
    // Full type string of the message.
    size_t GetTypeSize() const;
    void GetType(char* type) const;

    // Application id and version of the sending application.
    size_t GetAppIdSize() const;
    void GetAppId(char* appId) const;
    size_t GetAppVersionSize() const;
    void GetAppVersion(char* appVersion) const;

protected:
    explicit BrivonMessage(const char* type);
    BrivonMessage(const BrivonMessage& other) = delete;
    BrivonMessage& operator=(const BrivonMessage& other) = delete;
    virtual ~BrivonMessage();

    void* fields_;
};

// An application message.
class BRIVON_MESSAGE5_API SuiteMessage : public BrivonMessage {
public:
    // The prefix with which the type of every application message begins.
    static const char* const TYPE_PREFIX;

    explicit SuiteMessage(const char* type);
    ~SuiteMessage() override;

    void SetSource(const EndPoint& source);
    EndPoint GetSource() const;

    // A message without destinations is a broadcast.
    void SetDestinations(const EndPoint* destinations, size_t count);
    size_t GetDestinationCount() const;
    // Fills an array of the caller's with room for GetDestinationCount() endpoints.
    void GetDestinations(EndPoint* destinations) const;

    // A payload size may be 0 or 1 for an empty payload, and the payload of a received message may hold NUL bytes.
    void SetPayload(const char* payload);
    size_t GetPayloadSize() const;
    void GetPayload(char* payload) const;
};

// An error report from the bus. Made by the library only.
class BRIVON_MESSAGE5_API ErrorMessage : public BrivonMessage {
public:
    // The exact type of error messages.
    static const char* const TYPE;

    size_t GetErrorSize() const;
    void GetError(char* error) const;
    size_t GetFaultSize() const;
    void GetFault(char* fault) const;

protected:
    ErrorMessage();
    ~ErrorMessage() override;
};

// Derived from by programs. The library borrows listeners and never deletes one.
class BRIVON_MESSAGE5_API IBrivonMessageListener {
public:
    IBrivonMessageListener();

    // slot 0: called on a thread of the library; the message is borrowed until the call returns.
    virtual void Receive(const BrivonMessage& message) = 0;

protected:
    ~IBrivonMessageListener() = default;
};

// The dispatcher: one per process, owned and counted by the library.
class BRIVON_MESSAGE5_API IBrivonMessageDispatcher {
public:
    using EndPointsCallback = void (*)(void* context);

    static BrivonMessageErrorCode SetConfig(const char* first, const char* second);
    static BrivonMessageErrorCode GetInstance(IBrivonMessageDispatcher** dispatcher);
    // One call for each GetInstance that answered 0.
    static void ReleaseInstance();

    virtual void Reserved0() = 0;                                                            // slot 0: not used
    virtual BrivonMessageErrorCode Send(const SuiteMessage& message) = 0;                    // slot 1
    virtual void AddMessageListener(IBrivonMessageListener* listener) = 0;                   // slot 2
    virtual void RemoveMessageListener(IBrivonMessageListener* listener) = 0;                // slot 3
    virtual void AddErrorListener(IBrivonMessageListener* listener) = 0;                     // slot 4
    virtual void RemoveErrorListener(IBrivonMessageListener* listener) = 0;                  // slot 5
    virtual void RegisterEndPointsCallback(EndPointsCallback callback, void* context) = 0;   // slot 6
    virtual void UnregisterEndPointsCallback(EndPointsCallback callback, void* context) = 0; // slot 7
    virtual void RefreshEndPoints() = 0;                                                     // slot 8
    virtual bool IsRefreshing() = 0;                                                         // slot 9
    virtual EndPoint GetSelfEndPoint() = 0;                                                  // slot 10
    virtual bool IsReady() = 0;                                                              // slot 11
    // The array stays the library's and goes back through ReleaseEndPoints.
    virtual void GetEndPoints(EndPoint** endPoints, size_t* count) = 0; // slot 12
    virtual void ReleaseEndPoints(EndPoint* endPoints) = 0;             // slot 13

protected:
    ~IBrivonMessageDispatcher() = default;
};

} // namespace kesta::brivon::api5

#endif
