// A value that crosses between a stand-in and a script: what JavaScript would write as a literal.
#ifndef STANDINS_VALUE_H
#define STANDINS_VALUE_H

#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace standins {

class Value;
using List = std::vector<Value>;
using Object = std::map<std::string, Value>;

class Value : public std::variant<std::monostate, bool, double, std::string, List, Object> {
public:
    using variant::variant;
    Value(const char* text)
        : variant(std::string(text)) {}
    Value(int number)
        : variant(static_cast<double>(number)) {}

    bool isNull() const { return std::holds_alternative<std::monostate>(*this); }
    const Object* asObject() const { return std::get_if<Object>(this); }
    // The named property; null where there is none.
    const Value& operator[](const std::string& key) const {
        static const Value null;
        const Object* object = asObject();
        const auto found = object == nullptr ? Object::const_iterator() : object->find(key);
        return object == nullptr || found == object->end() ? null : found->second;
    }
    // Each answers the fallback for null and throws std::invalid_argument, naming what is meant, for another kind.
    bool toBool(const char* what, bool fallback) const { return to<bool>(what, "a boolean", fallback); }
    std::int32_t toInteger(const char* what, std::int32_t fallback) const {
        using Range = std::numeric_limits<std::int32_t>;
        const double number = to<double>(what, "a number", fallback);
        if (!(number >= Range::min() && number <= Range::max()) || number != std::floor(number))
            throw std::invalid_argument(std::string(what) + " must be a whole number of 32 bits");
        return static_cast<std::int32_t>(number);
    }
    std::string toText(const char* what) const { return to<std::string>(what, "a string", {}); }
    List toList(const char* what) const { return to<List>(what, "an array", {}); }

private:
    template <typename Kind>
    Kind to(const char* what, const char* kindName, Kind fallback) const {
        if (isNull())
            return fallback;
        if (const Kind* kind = std::get_if<Kind>(this))
            return *kind;
        throw std::invalid_argument(std::string(what) + " must be " + kindName);
    }
};

} // namespace standins

#endif
