// Compiled for its tables of virtual operations only: constant expressions that take the address of a virtual operation
// make the compiler lay the table of its class out, and say so when asked for a dump.
#include "BrivonMessage5.h"

using namespace kesta::brivon::api5;

struct Listener : IBrivonMessageListener {
    void Receive(const BrivonMessage&) override {}
};

void useTables(IBrivonMessageDispatcher* dispatcher) {
    Listener listener;
    dispatcher->AddMessageListener(&listener);
    EndPoint* endPoint = new EndPoint;
    delete endPoint;
    SuiteMessage* message = new SuiteMessage("");
    delete message;
}
