// What of the logger the module's own lines do not show.
#include "TestStreamLogger.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

// Shows what has been flushed.
struct Buffer : std::stringbuf {
    int sync() override { return flushed = str(), 0; }
    std::string flushed;
};

class Logger : public testing::Test {
protected:
    Logger() { setLogger(&logger_); }
    ~Logger() override { setLogger(nullptr); }

    Buffer buffer_;
    std::ostream out_{&buffer_};
    TestStreamLogger logger_{out_, LogLevel::Info};
};

TEST_F(Logger, WritesTextsOfAnyLengthUpToItsThreshold) {
    logger_.logMessage(LogLevel::Always, "x");
    logger_.logFormat(LogLevel::Debug, "%s", "not written");
    EXPECT_TRUE(logger_.isLevelEnabled(static_cast<LogLevel>(-1)));
    logger_.setLevel(LogLevel::Trace);
    const std::string longText(100'000, 'a');
    logger_.logFormat(LogLevel::Trace, "%s|%d", longText.c_str(), -5);
    logger_.logFormat(LogLevel::Warning, "%s", "");
    EXPECT_EQ(buffer_.flushed, "Always:x\nTrace:" + longText + "|-5\nWarning:\n");
}

TEST_F(Logger, WritesALineToTheLoggerThatIsThereWhenItsHolderGoesAway) {
    const std::pair<const char*, const char*> cases[] = {
        {"a/b\\c.cc", "b\\c.cc"}, {"a\\b\\c.cc", "c.cc"}, {"a/b/c.cc", "c.cc"}, {"c.cc", "c.cc"}};
    for (const auto& [file, name] : cases) {
        buffer_.str("");
        setLogger(nullptr);
        {
            LogMessageHolder holder(std::make_unique<LogMessage>("net", LogLevel::Info, file, 42, "Conn::open"));
            holder.stream() << "connected";
            setLogger(&logger_);
        }
        EXPECT_EQ(buffer_.flushed, std::string("Info:net: connected (") + name + ".Conn::open.42)\n");
    }
}

TEST_F(Logger, WritesTheBeginAndTheEndOfAScope) {
    { LogScope("c", LogLevel::Warning, std::string("work")).stream() << " done"; }
    EXPECT_EQ(LogScope("c", LogLevel::Trace, std::string("a\0b", 3)).stream().str(), std::string("a\0b", 3));
    const LogScope unfinished("c", LogLevel::Warning, "other work");
    setLogger(nullptr);
    EXPECT_EQ(buffer_.flushed,
              "Warning:c: Begin work (..0)\nWarning:c: End work done (..0)\nWarning:c: Begin other work (..0)\n");
}

// Throws from every write.
struct BrokenBuffer : std::streambuf {
    int_type overflow(int_type) override { throw std::runtime_error("broken"); }
};

using LoggerDeathTest = Logger;

TEST_F(LoggerDeathTest, ReportsMisuseThroughLiveAssertions) {
    BrokenBuffer buffer;
    std::ostream broken(&buffer);
    broken.exceptions(std::ios::badbit);
    TestStreamLogger brokenLogger(broken, LogLevel::Info);
    EXPECT_DEATH(logger_.logMessage(LogLevel::Info, nullptr),
                 "src/TestStreamLogger\\.cpp:.*`message && \"Message cannot be null!\"'");
    EXPECT_DEATH(logger_.logFormat(LogLevel::Info, nullptr), "`format && \"Format cannot be NULL\"'");
    EXPECT_DEATH(brokenLogger.logMessage(LogLevel::Info, "x"), "src/TestStreamLogger\\.cpp:.*`false'");
}

} // namespace
