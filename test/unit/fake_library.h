// A second, minimal implementation of the messaging contract, made from the contract alone: enough to construct an
// adapter on it, to send through it, and to make records of any shape.
#ifndef TEST_FAKE_LIBRARY_H
#define TEST_FAKE_LIBRARY_H

#include "BrivonMessage5.h"

#include <map>
#include <string>
#include <vector>

namespace fake {

// What stands behind every object. A text field is what its getter writes, terminator included, and has size 0 until it
// is set.
struct Record {
    std::map<std::string, std::string> texts; // by the names of the accessors
    std::vector<kesta::brivon::api5::EndPoint> destinations;
};

// Messages with an open record.
struct Suite : kesta::brivon::api5::SuiteMessage {
    Suite()
        : SuiteMessage("") {}
    Record& record() const { return *static_cast<Record*>(fields_); }
};

struct Error : kesta::brivon::api5::ErrorMessage {
    Error() = default;
    ~Error() override = default;
    Record& record() const { return *static_cast<Record*>(fields_); }
};

} // namespace fake

#endif
