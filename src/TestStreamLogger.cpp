#include "TestStreamLogger.h"

#include <array>
#include <cassert>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace {

ILogger* installedLogger = nullptr;

// Constants that need no destruction: a library thread may still log while the process exits.
const char* levelName(LogLevel level) {
    static constexpr std::array<const char*, 6> names = {"Always", "Error", "Warning", "Info", "Debug", "Trace"};
    return names[static_cast<std::size_t>(level)];
}

// What follows the last "/", or the last "\" where there is no "/".
const char* baseName(const char* file) {
    const char* separator = std::strrchr(file, '/');
    if (separator == nullptr)
        separator = std::strrchr(file, '\\');
    return separator == nullptr ? file : separator + 1;
}

// Never destroyed, for the same reason as the level names.
TestStreamLogger& standardOutputLogger = *new TestStreamLogger(std::cout, LogLevel::Info);

} // namespace

void setLogger(ILogger* logger) {
    installedLogger = logger;
}

ILogger* getLogger() {
    return installedLogger;
}

bool shouldLog(LogLevel level) {
    ILogger* logger = installedLogger;
    return logger != nullptr && logger->isLevelEnabled(level);
}

TestStreamLogger& moduleStreamLogger() {
    return standardOutputLogger;
}

TestStreamLogger::TestStreamLogger(std::ostream& stream, LogLevel threshold)
    : stream_(&stream)
    , threshold_(threshold) {}

void TestStreamLogger::logMessage(LogLevel level, const char* message) {
    assert(message && "Message cannot be null!");
    if (message == nullptr)
        return;
    try {
        if (!isLevelEnabled(level))
            return;
        *stream_ << levelName(level) << ':' << message << std::endl;
    } catch (...) {
        assert(false);
    }
}

void TestStreamLogger::logFormatV(LogLevel level, const char* format, va_list args) {
    assert(format && "Format cannot be NULL");
    if (format == nullptr)
        return;
    try {
        if (!isLevelEnabled(level))
            return;
        const std::string text = formatString(format, args);
        logMessage(level, text.c_str());
    } catch (...) {
        assert(false);
    }
}

void TestStreamLogger::logFormat(LogLevel level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    try {
        logFormatV(level, format, args);
    } catch (...) {
        assert(false);
    }
    va_end(args);
}

bool TestStreamLogger::isLevelEnabled(LogLevel level) {
    return level <= threshold_;
}

void TestStreamLogger::setLevel(LogLevel level) {
    threshold_ = level;
}

LogLevel TestStreamLogger::getLevel() {
    return threshold_;
}

std::string TestStreamLogger::getLevelName(LogLevel level) {
    return levelName(level);
}

std::string TestStreamLogger::formatString(const char* format, va_list args) {
    va_list measured;
    va_copy(measured, args);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length <= 0)
        return {};
    const auto size = static_cast<std::size_t>(length) + 1;
    const auto buffer = std::make_unique<char[]>(size);
    if (std::vsnprintf(buffer.get(), size, format, args) <= 0)
        return {};
    return buffer.get();
}

LogMessage::LogMessage(const char* category, LogLevel level, const char* file, std::int32_t line, const char* function)
    : category_(category)
    , level_(level)
    , file_(file)
    , line_(line)
    , function_(function) {}

LogMessage::LogMessage(const char* category, LogLevel level)
    : LogMessage(category, level, "", 0, "") {}

void LogMessage::write() const {
    writeAs("%s: %s (%s.%s.%d)");
}

void LogMessage::writeAs(const char* format) const {
    ILogger* logger = getLogger();
    if (logger != nullptr)
        logger->logFormat(level_, format, category_, text_.str().c_str(), baseName(file_), function_, line_);
}

LogMessageHolder::LogMessageHolder(std::unique_ptr<LogMessage> message)
    : message_(std::move(message)) {}

LogMessageHolder::~LogMessageHolder() {
    if (message_ != nullptr)
        message_->write();
}

LogScope::LogScope(const char* category, LogLevel level, const char* name)
    : LogScope(category, level, std::string(name)) {}

LogScope::LogScope(const char* category, LogLevel level, const std::string& name)
    : message_(std::make_unique<LogMessage>(category, level)) {
    message_->stream() << name;
    message_->writeAs("%s: Begin %s (%s.%s.%d)");
}

LogScope::~LogScope() {
    writeEnd();
}

void LogScope::writeEnd() const {
    message_->writeAs("%s: End %s (%s.%s.%d)");
}
