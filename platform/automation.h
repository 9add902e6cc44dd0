// Late-bound automation: objects created by ProgID (or bound by moniker) and
// called by member name with Variant arguments, some of them by reference.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/errors.h"
#include "platform/variant.h"

namespace platform {

enum class CallKind { Method, PropertyGet, PropertyPut };

// One argument of a call. A by-reference argument may be changed by the callee;
// the caller reads it back after the call.
struct Arg {
    Variant value;
    bool byRef = false;
};

// What every automation object implements, real or stand-in. Member names are
// matched case-insensitively. Failures throw ComError.
class Dispatch {
public:
    virtual ~Dispatch() = default;
    virtual Variant invoke(std::string_view member, CallKind kind, std::span<Arg> args) = 0;
    // The items a For Each over the object visits; objects that are no
    // collection throw ComError 438.
    virtual std::vector<Variant> enumerate();
};

// Marks an argument as passed by reference: Object::call writes the callee's
// value back into the referenced Variant.
struct ByRef {
    Variant* target;
};

class Object {
public:
    Object() = default;
    Object(std::shared_ptr<Dispatch> p) : p_(std::move(p)) {}

    explicit operator bool() const { return p_ != nullptr; }
    const std::shared_ptr<Dispatch>& ptr() const { return p_; }
    void release() { p_.reset(); }

    template <class... A>
    Variant call(std::string_view member, A&&... a) {
        return invoke(member, CallKind::Method, std::forward<A>(a)...);
    }
    template <class... A>
    Variant get(std::string_view member, A&&... a) {
        return invoke(member, CallKind::PropertyGet, std::forward<A>(a)...);
    }
    // Property get that must yield an object.
    template <class... A>
    Object obj(std::string_view member, A&&... a) {
        return get(member, std::forward<A>(a)...).toObject();
    }
    void put(std::string_view member, Variant value);
    std::vector<Variant> items();

private:
    template <class... A>
    Variant invoke(std::string_view member, CallKind kind, A&&... a) {
        std::vector<Arg> args;
        std::vector<Variant*> refs;
        args.reserve(sizeof...(a));
        (push(args, refs, std::forward<A>(a)), ...);
        Variant result = dispatchChecked().invoke(member, kind, args);
        for (size_t i = 0; i < args.size(); ++i)
            if (refs[i]) *refs[i] = std::move(args[i].value);
        return result;
    }
    static void push(std::vector<Arg>& args, std::vector<Variant*>& refs, ByRef r) {
        args.push_back(Arg{*r.target, true});
        refs.push_back(r.target);
    }
    template <class T>
    static void push(std::vector<Arg>& args, std::vector<Variant*>& refs, T&& v) {
        args.push_back(Arg{Variant(std::forward<T>(v)), false});
        refs.push_back(nullptr);
    }
    Dispatch& dispatchChecked() const;

    std::shared_ptr<Dispatch> p_;
};

class Automation {
public:
    virtual ~Automation() = default;
    // CreateObject(ProgID): ComError 429 when the class is not registered or
    // cannot be created, 0x8007007E when its module cannot be loaded.
    virtual Object createObject(std::string_view progId) = 0;
    // GetObject(moniker), e.g. "winmgmts:".
    virtual Object getObject(std::string_view moniker) = 0;
    // A class the program creates directly rather than by ProgID, by its class
    // identifier ("{88565CBB-406B-431F-BE79-66F8E3F67490}", any case): the
    // same errors as createObject. The object is used through IDispatch.
    virtual Object createByClsid(std::string_view clsid) = 0;
    // Early-bound call of the first method of interface `iid` of `object`,
    // for classes the program knows only by their interface. The interface is
    // dual, as an automation class's interface is: it derives from IDispatch
    // and its first method is the vtable slot right after IDispatch's seven,
    //   HRESULT First([in] BSTR text, [out, retval] BSTR* result);
    // Returns `result`.
    // ComError 430 when the object does not implement `iid`; the method's own
    // failure as the object reports it.
    virtual std::string callFirstMethod(const Object& object, std::string_view iid, const std::string& text) = 0;
};

// Case-insensitive ASCII comparison, as member names and ProgIDs are matched.
bool iequals(std::string_view a, std::string_view b);

}  // namespace platform
