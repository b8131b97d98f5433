// Over records of any shape: the value classes of the contract are this file's own.
#include "brivonadapter_readers.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <map>

using namespace std::string_literals;

namespace {

// What stands behind every object. A text is what its getter writes, with a terminator or without, and has size 0 until
// it is set.
struct Record {
    std::map<std::string, std::string> texts; // by the names of the accessors
    std::vector<kesta::brivon::api5::EndPoint> destinations;
};

// All objects' records, which copies of an object share.
std::deque<Record> records;

Record& record(void* fields) {
    return *static_cast<Record*>(fields);
}

} // namespace

namespace kesta::brivon::api5 {

#define GETTERS(Class, Name)                                                                                           \
    size_t Class::Get##Name##Size() const {                                                                            \
        return record(fields_).texts[#Name].size();                                                                    \
    }                                                                                                                  \
    void Class::Get##Name(char* text) const {                                                                          \
        const std::string& bytes = record(fields_).texts[#Name];                                                       \
        std::memcpy(text, bytes.data(), bytes.size());                                                                 \
    }
GETTERS(EndPoint, Id)
GETTERS(EndPoint, AppId)
GETTERS(EndPoint, AppVersion)
GETTERS(BrivonMessage, Type)
GETTERS(BrivonMessage, AppId)
GETTERS(BrivonMessage, AppVersion)
GETTERS(SuiteMessage, Payload)
GETTERS(ErrorMessage, Error)
GETTERS(ErrorMessage, Fault)

EndPoint::EndPoint()
    : fields_(&records.emplace_back()) {}
EndPoint::EndPoint(const EndPoint&) = default;
EndPoint& EndPoint::operator=(const EndPoint&) = default;
EndPoint::~EndPoint() = default;

BrivonMessage::BrivonMessage(const char*)
    : fields_(&records.emplace_back()) {}
BrivonMessage::~BrivonMessage() = default;

const char* const SuiteMessage::TYPE_PREFIX = "suite/";
SuiteMessage::SuiteMessage(const char* type)
    : BrivonMessage(type) {}
SuiteMessage::~SuiteMessage() = default;
size_t SuiteMessage::GetDestinationCount() const {
    return record(fields_).destinations.size();
}
void SuiteMessage::GetDestinations(EndPoint* destinations) const {
    for (const EndPoint& destination : record(fields_).destinations)
        *destinations++ = destination;
}

// Begins with the prefix, so that the order of the two tests of a type shows.
const char* const ErrorMessage::TYPE = "suite/error";
ErrorMessage::ErrorMessage()
    : BrivonMessage(TYPE) {}
ErrorMessage::~ErrorMessage() = default;

} // namespace kesta::brivon::api5

namespace {

using namespace kesta::brivon::api5;

// An object whose record is open.
template <typename Class>
struct Open : Class {
    using Class::Class;
    std::string& text(const char* name) { return record(this->fields_).texts[name]; }
    std::vector<EndPoint>& destinations() { return record(this->fields_).destinations; }
};

TEST(Readers, CutEveryFieldButThePayloadAtItsFirstNul) {
    const struct {
        std::string bytes;
        std::string text;
        std::string payload;
    } cases[] = {
        {""s, "", ""},
        {"\0"s, "", ""},
        {"a\0"s, "a", "a"},
        {"a\0b\0"s, "a", "a\0b"s},
        {"\0\0\0"s, "", "\0\0"s},
        {"no terminator"s, "no terminator", "no terminato"},
        {"\xC3\xA4,{}\0"s, "\xC3\xA4,{}", "\xC3\xA4,{}"},
    };
    for (const auto& c : cases) {
        Open<SuiteMessage> suite("");
        suite.text("Type") = suite.text("AppId") = suite.text("AppVersion") = suite.text("Payload") = c.bytes;
        EXPECT_EQ(readType(suite), c.text);
        EXPECT_EQ(readAppId(suite), c.text);
        EXPECT_EQ(readAppVersion(suite), c.text);
        EXPECT_EQ(readPayload(suite), c.payload);

        Open<ErrorMessage> error;
        error.text("Error") = c.bytes;
        error.text("Fault") = "f" + c.bytes;
        EXPECT_EQ(readError(error), c.text);
        EXPECT_EQ(readFault(error), "f" + c.text);

        Open<EndPoint> endPoint;
        endPoint.text("AppId") = endPoint.text("AppVersion") = c.bytes;
        endPoint.text("Id") = "i" + c.bytes;
        EXPECT_EQ(endPointToString(endPoint), "{" + c.text + "," + c.text + ",i" + c.text + "}");

        EXPECT_TRUE(readDestinations(suite).empty());
        suite.destinations() = {endPoint, EndPoint()};
        const std::vector<EndPoint> destinations = readDestinations(suite);
        ASSERT_EQ(destinations.size(), 2U);
        EXPECT_EQ(readId(destinations[0]), "i" + c.text);
        EXPECT_EQ(endPointToString(destinations[1]), "{,,}");
    }
}

TEST(Readers, ClassifyErrorsBeforePrefixes) {
    for (const std::string& type :
         {"suite/error"s, "suite/error "s, "suite/error\0"s, "suite/"s, "suite"s, " suite/"s}) {
        EXPECT_EQ(isErrorMessage(type), type == "suite/error") << type;
        EXPECT_EQ(isSuiteMessage(type), type != "suite" && type != " suite/") << type;
    }
}

} // namespace
