// Both halves of the bridge in one program, before libraries of another vendor: for the sanitizers.
#include "windows/vendor/calls.h"

#include <gtest/gtest.h>

#include <utility>

// The vendor's own functions, of both libraries.
extern "C" {
void messaging_order(const char* order);
const char* messaging_report();
void control_order(const char* order);
}

namespace {

std::vector<std::string> numbers(size_t count) {
    std::vector<std::string> texts;
    for (size_t i = 0; i < count; ++i)
        texts.push_back(std::to_string(i));
    return texts;
}

class Reader final : public IBrivonMessageListener {
public:
    void Receive(const BrivonMessage& message) override {
        const std::string type = readType(message);
        if (isErrorMessage(type)) {
            read += readFault(static_cast<const ErrorMessage&>(message));
        } else {
            const auto& suiteMessage = static_cast<const SuiteMessage&>(message);
            read += endPointToString(suiteMessage.GetSource()) + readPayload(suiteMessage) + ' ';
        }
    }
    std::string read;
};

} // namespace

// First, before an array of two endpoints has been seen.
TEST(Bridge, DestinationsAreTheLibrarys) {
    for (const size_t count : {0U, 1U, 2U, 200U})
        EXPECT_EQ(destinations(count), numbers(count));
}

TEST(Bridge, EndPointsAreTheLibrarys) {
    IBrivonMessageDispatcher* dispatcher = nullptr;
    ASSERT_EQ(IBrivonMessageDispatcher::GetInstance(&dispatcher), BrivonMessageErrorCode_Success);
    std::vector<EndPoint> kept(1);
    for (const size_t count : {1U, 0U, 200U, 2U}) {
        messaging_order(("answer " + std::to_string(count) + " 0 0 0").c_str());
        std::vector<EndPoint> listed = listEndPoints(*dispatcher);
        EXPECT_EQ(destinations(listed), numbers(count));
        if (count > 0) {
            kept[0] = listed.back();
            listed.back().SetAppVersion("changed");
            EXPECT_EQ(endPointToString(kept[0]), "{app,," + std::to_string(count - 1) + '}');
        }
    }
    EXPECT_EQ(endPointToString(dispatcher->GetSelfEndPoint()), "{,,self}");
}

TEST(Bridge, TheLibraryCallsListenersAndCallbacks) {
    IBrivonMessageDispatcher* dispatcher = nullptr;
    IBrivonMessageDispatcher::GetInstance(&dispatcher);
    Reader reader;
    dispatcher->AddMessageListener(&reader);
    dispatcher->AddErrorListener(&reader);
    messaging_order("deliver 1 brivon.ErrorMessage fault");
    messaging_order("deliver 1 brivon.SuiteMessage.t payload");
    EXPECT_EQ(reader.read, "fault{sender,,sender-1}payload ");
    dispatcher->RemoveMessageListener(&reader);
    dispatcher->RemoveErrorListener(&reader);

    const auto fail = [](void*) { throw std::runtime_error("thrown by a callback"); };
    dispatcher->RegisterEndPointsCallback(fail, nullptr);
    messaging_report();
    dispatcher->RefreshEndPoints();
    EXPECT_NE(std::string(messaging_report()).find(" caught:thrown by a callback"), std::string::npos);
    dispatcher->UnregisterEndPointsCallback(fail, nullptr);
}

TEST(Bridge, EveryFunctionMayThrow) {
    using Order = void (*)(const char*);
    for (const auto& [library, order] :
         {std::pair<std::string, Order>{"BrivonMessage5.dll", messaging_order}, {"BrivonControl.dll", control_order}}) {
        for (const auto& [name, call] : callsOf(library)) {
            EXPECT_EQ(attempt(library, name), "nothing") << name;
            order(("throw " + name + " nested").c_str());
            EXPECT_EQ(attempt(library, name), "nested by the vendor") << name;
            order(("throw " + name + " object").c_str());
            EXPECT_EQ(attempt(library, name), "something") << name;
            order("throw - -");
        }
    }
}
