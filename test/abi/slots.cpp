// Compiled for its tables of virtual operations only: a use of an interface, or the construction and destruction of an
// object, makes the compiler lay the table of its class out, and say so when asked for a dump.
#include "BrivonControl.h"
#include "BrivonMessage5.h"

using namespace kesta::brivon::api5;

struct Listener : IBrivonMessageListener {
    void Receive(const BrivonMessage&) override {}
};

void useTables(IBrivonMessageDispatcher* dispatcher, IBrivonController* controller) {
    Listener listener;
    dispatcher->AddMessageListener(&listener);
    controller->GetProcessId("");
    delete new EndPoint;
    delete new SuiteMessage("");
}
