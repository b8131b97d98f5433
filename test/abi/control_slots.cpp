// Compiled for its table of virtual operations only: a use of the interface makes the compiler lay it out.
#include "BrivonControl.h"

using namespace kesta::brivon::api5;

int32_t useTable(IBrivonController* controller) {
    return controller->GetProcessId("");
}
