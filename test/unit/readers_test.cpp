#include "brivonadapter_readers.h"

#include "fake_library.h"

#include <gtest/gtest.h>

using namespace kesta::brivon::api5;
using namespace std::string_literals;

namespace {

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
        const fake::Suite suite;
        for (const char* name : {"Type", "AppId", "AppVersion", "Payload"})
            suite.record().texts[name] = c.bytes;
        EXPECT_EQ(readType(suite), c.text);
        EXPECT_EQ(readAppId(suite), c.text);
        EXPECT_EQ(readAppVersion(suite), c.text);
        EXPECT_EQ(readPayload(suite), c.payload);

        const fake::Error error;
        error.record().texts["Error"] = c.bytes;
        error.record().texts["Fault"] = "f" + c.bytes;
        EXPECT_EQ(readError(error), c.text);
        EXPECT_EQ(readFault(error), "f" + c.text);
    }
}

TEST(Readers, CopyDestinationsInOrderAndWriteThemWithoutQuoting) {
    fake::Suite suite;
    EXPECT_TRUE(readDestinations(suite).empty());
    EndPoint two[2];
    two[0].SetAppId("a,b");
    two[0].SetAppVersion("{}");
    two[1].SetId("7");
    suite.SetDestinations(two, 2);
    const std::vector<EndPoint> destinations = readDestinations(suite);
    ASSERT_EQ(destinations.size(), 2U);
    EXPECT_EQ(endPointToString(destinations[0]) + endPointToString(destinations[1]), "{a,b,{},}{,,7}");
}

TEST(Readers, ClassifyErrorsBeforePrefixes) {
    EXPECT_TRUE(isErrorMessage("suite/error"));
    EXPECT_FALSE(isErrorMessage("suite/error "));
    EXPECT_FALSE(isErrorMessage("suite/error\0"s));
    EXPECT_TRUE(isSuiteMessage("suite/"));
    EXPECT_TRUE(isSuiteMessage("suite/anything"));
    EXPECT_FALSE(isSuiteMessage(" suite/anything"));
    EXPECT_FALSE(isSuiteMessage("suite"));
}

} // namespace
