#include "TestStreamLogger.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

class Logger : public testing::Test {
protected:
    ~Logger() override { setLogger(nullptr); }

    std::ostringstream out_;
    TestStreamLogger logger_{out_, LogLevel::Info};
};

TEST_F(Logger, WritesTextsOfAnyLengthUpToItsThreshold) {
    const std::string lines[] = {"Always:x\n", "Error:x\n", "Warning:x\n", "Info:x\n", "Debug:x\n", "Trace:x\n"};
    for (const LogLevel threshold : {LogLevel::Info, LogLevel::Trace}) {
        logger_.setLevel(threshold);
        EXPECT_EQ(logger_.getLevel(), threshold);
        for (int level = 0; level <= 5; ++level) {
            out_.str("");
            logger_.logMessage(static_cast<LogLevel>(level), "x");
            logger_.logFormat(static_cast<LogLevel>(level), "%s", "x");
            EXPECT_EQ(out_.str(), level <= static_cast<int>(threshold) ? lines[level] + lines[level] : "");
        }
        EXPECT_TRUE(logger_.isLevelEnabled(static_cast<LogLevel>(-1)));
    }
    EXPECT_EQ(logger_.getLevelName(LogLevel::Debug), "Debug");

    out_.str("");
    const std::string longText(100'000, 'a');
    logger_.logFormat(LogLevel::Info, "%s|%d", longText.c_str(), -5);
    logger_.logFormat(LogLevel::Info, "%s", "");
    EXPECT_EQ(out_.str(), "Info:" + longText + "|-5\nInfo:\n");
}

LogMessageHolder holder(const char* file) {
    return LogMessageHolder(std::make_unique<LogMessage>("net", LogLevel::Info, file, 42, "Conn::open"));
}

TEST_F(Logger, WritesALineWhenItsHolderGoesAway) {
    setLogger(&logger_);
    const std::pair<const char*, const char*> cases[] = {
        {"src\\conn.cpp", "conn.cpp"}, {"a/b\\c.cc", "b\\c.cc"}, {"a\\b\\c.cc", "c.cc"},
        {"a/b/c.cc", "c.cc"},          {"c.cc", "c.cc"},         {"", ""},
    };
    for (const auto& [file, name] : cases) {
        out_.str("");
        holder(file).stream() << "connected";
        EXPECT_EQ(out_.str(), std::string("Info:net: connected (") + name + ".Conn::open.42)\n");
    }
}

TEST_F(Logger, AsksForTheLoggerOnlyWhenALineIsWritten) {
    for (int level = 0; level <= 5; ++level)
        EXPECT_FALSE(shouldLog(static_cast<LogLevel>(level)));
    {
        const LogMessageHolder late = holder("late");
        setLogger(&logger_);
        EXPECT_EQ(getLogger(), &logger_);
        EXPECT_TRUE(shouldLog(LogLevel::Info));
        EXPECT_FALSE(shouldLog(LogLevel::Debug));
    }
    {
        const LogMessageHolder gone = holder("gone");
        setLogger(nullptr);
    }
    EXPECT_EQ(out_.str(), "Info:net:  (late.Conn::open.42)\n");
}

TEST_F(Logger, WritesTheBeginAndTheEndOfAScope) {
    setLogger(&logger_);
    {
        LogScope scope("c", LogLevel::Warning, std::string("work"));
        scope.stream() << " done";
        scope.writeEnd();
    }
    EXPECT_EQ(out_.str(), "Warning:c: Begin work (..0)\n"
                          "Warning:c: End work done (..0)\n"
                          "Warning:c: End work done (..0)\n");
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
    const char* const noFormat = nullptr;
    va_list none{};
    EXPECT_DEATH(logger_.logMessage(LogLevel::Info, nullptr),
                 "src/TestStreamLogger\\.cpp:.*`message && \"Message cannot be null!\"'");
    EXPECT_DEATH(logger_.logFormatV(LogLevel::Info, noFormat, none),
                 "src/TestStreamLogger\\.cpp:.*`format && \"Format cannot be NULL\"'");
    EXPECT_DEATH(brokenLogger.logMessage(LogLevel::Info, "x"), "src/TestStreamLogger\\.cpp:.*`false'");
}

} // namespace
