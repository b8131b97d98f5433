// A second, minimal implementation of the messaging contract, made from the contract alone: enough to construct an
// adapter on it, to send through it, and to make records of any shape.
#ifndef TEST_FAKE_LIBRARY_H
#define TEST_FAKE_LIBRARY_H

#include "BrivonMessage5.h"

#include <string>
#include <vector>

namespace fake {

// A text field as the library reports it: size bytes, of which `bytes` are written by the getter.
struct Field {
    std::string bytes; // including what terminates them
    int reads = 0;     // calls of the getter
};

struct Message {
    Field type{std::string(1, '\0')};
    Field appId{std::string(1, '\0')};
    Field appVersion{std::string(1, '\0')};
    Field payload{std::string(1, '\0')};
    Field error{std::string(1, '\0')};
    Field fault{std::string(1, '\0')};
    std::vector<kesta::brivon::api5::EndPoint> destinations;
};

struct Suite : kesta::brivon::api5::SuiteMessage {
    Suite();
    Message& fields() const { return *static_cast<Message*>(fields_); }
};

struct Error : kesta::brivon::api5::ErrorMessage {
    Error() = default;
    ~Error() override = default;
    Message& fields() const { return *static_cast<Message*>(fields_); }
};

} // namespace fake

#endif
