#include "brivonadapter_readers.h"

#include "fake_library.h"

#include <gtest/gtest.h>

using namespace kesta::brivon::api5;
using namespace std::string_literals;

namespace {

TEST(Readers, CutEveryFieldButThePayloadAtItsFirstNul) {
    struct Case {
        std::string bytes;
        std::string text;
        std::string payload;
    };
    const Case cases[] = {
        {""s, "", ""},
        {"\0"s, "", ""},
        {"a\0"s, "a", "a"},
        {"a\0b\0"s, "a", "a\0b"s},
        {"\0\0\0"s, "", "\0\0"s},
        {"no terminator"s, "no terminator", "no terminato"},
        {"\xC3\xA4,{}\0"s, "\xC3\xA4,{}", "\xC3\xA4,{}"},
    };
    for (const Case& c : cases) {
        const fake::Suite suite;
        fake::Message& fields = suite.fields();
        fields.type.bytes = fields.appId.bytes = fields.appVersion.bytes = fields.payload.bytes = c.bytes;
        EXPECT_EQ(readType(suite), c.text);
        EXPECT_EQ(readAppId(suite), c.text);
        EXPECT_EQ(readAppVersion(suite), c.text);
        EXPECT_EQ(readPayload(suite), c.payload);
        EXPECT_EQ(fields.payload.reads, c.bytes.size() < 2 ? 0 : 1);

        const fake::Error error;
        error.fields().error.bytes = c.bytes;
        error.fields().fault.bytes = "f" + c.bytes;
        EXPECT_EQ(readError(error), c.text);
        EXPECT_EQ(readFault(error), "f" + c.text);
    }
}

EndPoint endPoint(const char* id, const char* appId, const char* appVersion) {
    EndPoint made;
    made.SetId(id);
    made.SetAppId(appId);
    made.SetAppVersion(appVersion);
    return made;
}

TEST(Readers, WriteAnEndPointWithoutQuoting) {
    EXPECT_EQ(endPointToString(endPoint("7", "app", "1.0")), "{app,1.0,7}");
    EXPECT_EQ(endPointToString(endPoint("", "a,b", "{}")), "{a,b,{},}");
    EXPECT_EQ(endPointToString(EndPoint()), "{,,}");
}

TEST(Readers, CopyDestinationsInOrder) {
    fake::Suite suite;
    EXPECT_TRUE(readDestinations(suite).empty());
    const EndPoint two[] = {endPoint("1", "a", ""), endPoint("2", "b", "")};
    suite.SetDestinations(two, 2);
    const std::vector<EndPoint> destinations = readDestinations(suite);
    ASSERT_EQ(destinations.size(), 2U);
    EXPECT_EQ(readId(destinations[0]) + readAppId(destinations[1]), "1b");
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

// The dispatcher's list operations alone.
class ListingDispatcher final : public IBrivonMessageDispatcher {
public:
    explicit ListingDispatcher(std::vector<EndPoint> endPoints, bool isCountWithheld = false)
        : endPoints_(std::move(endPoints))
        , isCountWithheld_(isCountWithheld) {}

    std::vector<const EndPoint*> released;
    EndPoint* array() { return endPoints_.data(); }

    void GetEndPoints(EndPoint** endPoints, size_t* count) override {
        EXPECT_EQ(*endPoints, nullptr);
        EXPECT_EQ(*count, 0U);
        *endPoints = array();
        *count = isCountWithheld_ ? 0 : endPoints_.size();
    }
    void ReleaseEndPoints(EndPoint* endPoints) override { released.push_back(endPoints); }

    void Reserved0() override {}
    BrivonMessageErrorCode Send(const SuiteMessage&) override { return BrivonMessageErrorCode_Success; }
    void AddMessageListener(IBrivonMessageListener*) override {}
    void RemoveMessageListener(IBrivonMessageListener*) override {}
    void AddErrorListener(IBrivonMessageListener*) override {}
    void RemoveErrorListener(IBrivonMessageListener*) override {}
    void RegisterEndPointsCallback(EndPointsCallback, void*) override {}
    void UnregisterEndPointsCallback(EndPointsCallback, void*) override {}
    void RefreshEndPoints() override {}
    bool IsRefreshing() override { return false; }
    EndPoint GetSelfEndPoint() override { return {}; }
    bool IsReady() override { return true; }

private:
    std::vector<EndPoint> endPoints_;
    bool isCountWithheld_;
};

TEST(Readers, GiveAnEndPointListBackOnceUnlessItIsEmpty) {
    ListingDispatcher three({endPoint("1", "", ""), endPoint("2", "", ""), endPoint("3", "", "")});
    const std::vector<EndPoint> list = listEndPoints(three);
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(readId(list[0]) + readId(list[1]) + readId(list[2]), "123");
    EXPECT_EQ(three.released, std::vector<const EndPoint*>{three.array()});

    ListingDispatcher withheld({endPoint("1", "", "")}, true);
    EXPECT_TRUE(listEndPoints(withheld).empty());
    EXPECT_TRUE(withheld.released.empty());
}

} // namespace
