// A value that crosses between a stand-in and a script: what JavaScript would write as a literal.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace standins {

class Value;
using List = std::vector<Value>;
using Object = std::map<std::string, Value>;

// Scripts are checked before they come here, so a value of another kind than the expected one counts as none.
class Value : public std::variant<std::monostate, bool, double, std::string, List, Object> {
public:
    using variant::variant;
    Value(const char* text)
        : variant(text == nullptr ? variant() : variant(std::string(text))) {}

    bool isNull() const { return std::holds_alternative<std::monostate>(*this); }
    template <typename Kind>
    Kind as(Kind otherwise = {}) const {
        const Kind* value = std::get_if<Kind>(this);
        return value == nullptr ? otherwise : *value;
    }
    template <typename Integer = std::int32_t>
    Integer toInteger() const {
        return static_cast<Integer>(static_cast<std::int32_t>(as<double>()));
    }
    std::string toText() const { return as<std::string>(); }
    // A property of an object; null where there is none.
    const Value& operator[](const char* name) const {
        static const Value null;
        const Object* object = std::get_if<Object>(this);
        const auto found = object == nullptr ? Object::const_iterator() : object->find(name);
        return object == nullptr || found == object->end() ? null : found->second;
    }
};

} // namespace standins
