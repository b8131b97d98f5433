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

TEST_F(Logger, PassesLevelsUpToItsThreshold) {
    struct Case {
        LogLevel level;
        const char* line;
    };
    const Case cases[] = {
        {LogLevel::Always, "Always:x\n"}, {LogLevel::Error, "Error:x\n"}, {LogLevel::Warning, "Warning:x\n"},
        {LogLevel::Info, "Info:x\n"},     {LogLevel::Debug, ""},          {LogLevel::Trace, ""},
    };
    for (const Case& c : cases) {
        out_.str("");
        logger_.logMessage(c.level, "x");
        EXPECT_EQ(out_.str(), c.line);
    }
    EXPECT_TRUE(logger_.isLevelEnabled(static_cast<LogLevel>(-1)));
    logger_.setLevel(LogLevel::Trace);
    EXPECT_EQ(logger_.getLevel(), LogLevel::Trace);
    logger_.logMessage(LogLevel::Trace, "y");
    EXPECT_EQ(out_.str(), "Trace:y\n");
    EXPECT_EQ(logger_.getLevelName(LogLevel::Debug), "Debug");
}

TEST_F(Logger, FormatsTextsOfAnyLength) {
    const std::string longText(100'000, 'a');
    logger_.logFormat(LogLevel::Info, "%s|%d", longText.c_str(), -5);
    logger_.logFormat(LogLevel::Info, "%s", "");
    logger_.logFormat(LogLevel::Debug, "%s", "not written");
    EXPECT_EQ(out_.str(), "Info:" + longText + "|-5\nInfo:\n");
}

void writeLine(const char* file) {
    LogMessageHolder(std::make_unique<LogMessage>("net", LogLevel::Info, file, 42, "Conn::open")).stream()
        << "connected";
}

TEST_F(Logger, WritesALineWhenItsHolderGoesAway) {
    setLogger(&logger_);
    for (const char* file : {"src\\conn.cpp", "a/b\\c.cc", "a\\b\\c.cc", "a/b/c.cc", "c.cc", ""})
        writeLine(file);
    EXPECT_EQ(out_.str(), "Info:net: connected (conn.cpp.Conn::open.42)\n"
                          "Info:net: connected (b\\c.cc.Conn::open.42)\n"
                          "Info:net: connected (c.cc.Conn::open.42)\n"
                          "Info:net: connected (c.cc.Conn::open.42)\n"
                          "Info:net: connected (c.cc.Conn::open.42)\n"
                          "Info:net: connected (.Conn::open.42)\n");
}

TEST_F(Logger, AsksForTheLoggerOnlyWhenALineIsWritten) {
    for (int level = 0; level <= 5; ++level)
        EXPECT_FALSE(shouldLog(static_cast<LogLevel>(level)));
    {
        LogMessageHolder lateLogger(std::make_unique<LogMessage>("c", LogLevel::Info, "f", 1, "g"));
        setLogger(&logger_);
        EXPECT_EQ(getLogger(), &logger_);
        EXPECT_TRUE(shouldLog(LogLevel::Info));
        EXPECT_FALSE(shouldLog(LogLevel::Debug));
    }
    {
        LogMessageHolder gone(std::make_unique<LogMessage>("c", LogLevel::Info, "f", 2, "g"));
        setLogger(nullptr);
    }
    EXPECT_EQ(out_.str(), "Info:c:  (f.g.1)\n");
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
