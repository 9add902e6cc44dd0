// The base of every stand-in automation object: members are registered by
// name with the argument counts they accept, and invoke() does what IDispatch
// does for a late-bound caller: case-insensitive lookup, 438 for an unknown
// member, 450 for a wrong argument count.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/automation.h"

namespace standins {

using platform::Arg;
using platform::CallKind;
using platform::Variant;

class DispatchBase : public platform::Dispatch {
public:
    using Args = std::span<Arg>;
    using Handler = std::function<Variant(Args)>;

    // source: what ComError::source() says for this object's failures.
    explicit DispatchBase(std::string source) : source_(std::move(source)) {}

    Variant invoke(std::string_view member, CallKind kind, Args args) override;

    const std::string& source() const { return source_; }

protected:
    // A method taking minArgs..maxArgs arguments. Late-bound callers read a
    // method without arguments as a property too, so a property get reaches it.
    void method(std::string name, size_t minArgs, size_t maxArgs, Handler fn);
    void method(std::string name, size_t argCount, Handler fn) {
        method(std::move(name), argCount, argCount, std::move(fn));
    }
    // A property without arguments; read-only when put is empty (a put then
    // fails with 438, as the real objects answer).
    void property(std::string name, std::function<Variant()> get,
                  std::function<void(const Variant&)> put = {});

    // Throws ComError `number` with this object's source; the runtime's
    // description when none is given.
    [[noreturn]] void fail(int32_t number, std::string description = {}) const;

private:
    struct Member {
        std::string name;
        size_t minArgs = 0, maxArgs = 0;
        Handler get;                              // method or property get
        std::function<void(const Variant&)> put;  // property put
    };
    Member* find(std::string_view name);

    std::string source_;
    std::vector<Member> members_;
};

// A read-only collection: Count, Item(index) (0-based) and For Each.
class Collection : public DispatchBase {
public:
    Collection(std::string source, std::vector<Variant> items);
    std::vector<Variant> enumerate() override { return items_; }

private:
    std::vector<Variant> items_;
};

// An object with fixed read-only properties, e.g. one instance of a WMI class.
class PropertyBag : public DispatchBase {
public:
    PropertyBag(std::string source, std::vector<std::pair<std::string, Variant>> properties);
};

}  // namespace standins
