// The module's diagnostic logger: an interface, one process-wide slot for the installed logger, a logger that writes to
// a stream, and the two classes that call sites use. While no logger is installed every call site does nothing.
//
// Any thread may log. Nothing here locks: lines of different threads may interleave.
#ifndef TEST_STREAM_LOGGER_H
#define TEST_STREAM_LOGGER_H

#include <cstdarg>
#include <cstdint>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>

// Lower numbers are more important. A logger passes the levels up to its threshold.
enum class LogLevel : std::int32_t { Always = 0, Error = 1, Warning = 2, Info = 3, Debug = 4, Trace = 5 };

class ILogger {
public:
    virtual ~ILogger() = default;

    virtual void logMessage(LogLevel level, const char* message) = 0;
    // format and arguments as for printf.
    virtual void logFormatV(LogLevel level, const char* format, va_list args) = 0;
    virtual void logFormat(LogLevel level, const char* format, ...) = 0;
    virtual bool isLevelEnabled(LogLevel level) = 0;
    virtual void setLevel(LogLevel level) = 0;
    virtual LogLevel getLevel() = 0;
};

// Installs a logger, which stays the caller's; null uninstalls.
void setLogger(ILogger* logger);
ILogger* getLogger();
// Whether a logger is installed and passes the level.
bool shouldLog(LogLevel level);

// Writes each message as one line: level name, ":", message, and the stream's newline. Never throws.
class TestStreamLogger : public ILogger {
public:
    // The stream stays the caller's and must outlive the logger.
    TestStreamLogger(std::ostream& stream, LogLevel threshold);

    void logMessage(LogLevel level, const char* message) override;
    void logFormatV(LogLevel level, const char* format, va_list args) override;
    void logFormat(LogLevel level, const char* format, ...) override;
    bool isLevelEnabled(LogLevel level) override;
    void setLevel(LogLevel level) override;
    LogLevel getLevel() override;

    // The range is not checked: only the six named levels have a name.
    std::string getLevelName(LogLevel level);
    // The formatting step of logFormatV alone.
    std::string formatString(const char* format, va_list args);

private:
    std::ostream* stream_;
    LogLevel threshold_;
};

// The logger that writes to the process's standard output.
TestStreamLogger& moduleStreamLogger();

// One diagnostic line being built. file, function and category are borrowed; pass literals.
class LogMessage {
public:
    LogMessage(const char* category, LogLevel level, const char* file, std::int32_t line, const char* function);
    LogMessage(const char* category, LogLevel level);

    std::ostringstream& stream() { return text_; }
    // Writes the line through the logger that is installed now, if any.
    void write() const;

private:
    friend class LogScope;
    void writeAs(const char* format) const;

    std::ostringstream text_;
    const char* category_;
    LogLevel level_;
    const char* file_;
    std::int32_t line_;
    const char* function_;
};

// Owns a LogMessage on a call site's stack and writes it when it goes away.
class LogMessageHolder {
public:
    explicit LogMessageHolder(std::unique_ptr<LogMessage> message);
    ~LogMessageHolder();
    LogMessageHolder(LogMessageHolder&&) = default;
    LogMessageHolder& operator=(LogMessageHolder&&) = delete;

    std::ostringstream& stream() { return message_->stream(); }

private:
    std::unique_ptr<LogMessage> message_;
};

// Writes a Begin line when made and an End line when it goes away. No call site of this module uses it.
class LogScope {
public:
    LogScope(const char* category, LogLevel level, const char* name);
    LogScope(const char* category, LogLevel level, const std::string& name);
    ~LogScope();
    LogScope(const LogScope&) = delete;
    LogScope& operator=(const LogScope&) = delete;

    std::ostringstream& stream() { return message_->stream(); }
    void writeEnd() const;

private:
    std::unique_ptr<LogMessage> message_;
};

#endif
