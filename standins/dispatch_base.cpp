#include "standins/dispatch_base.h"

#include "platform/errors.h"

namespace standins {

using platform::ComError;

Variant DispatchBase::invoke(std::string_view member, CallKind kind, Args args) {
    Member* m = find(member);
    if (!m) fail(platform::err::NoSuchMember);
    if (kind == CallKind::PropertyPut) {
        if (!m->put) fail(platform::err::NoSuchMember);
        if (args.size() != 1) fail(platform::err::WrongArgumentCount);
        m->put(args[0].value);
        return {};
    }
    if (!m->get) fail(platform::err::NoSuchMember);
    if (args.size() < m->minArgs || args.size() > m->maxArgs)
        fail(platform::err::WrongArgumentCount);
    return m->get(args);
}

void DispatchBase::method(std::string name, size_t minArgs, size_t maxArgs, Handler fn) {
    members_.push_back(Member{std::move(name), minArgs, maxArgs, std::move(fn), {}});
}

void DispatchBase::property(std::string name, std::function<Variant()> get,
                            std::function<void(const Variant&)> put) {
    Handler getter;
    if (get) getter = [g = std::move(get)](Args) { return g(); };
    members_.push_back(Member{std::move(name), 0, 0, std::move(getter), std::move(put)});
}

void DispatchBase::fail(int32_t number, std::string description) const {
    if (description.empty()) description = platform::describeError(number);
    throw ComError(number, source_, std::move(description));
}

DispatchBase::Member* DispatchBase::find(std::string_view name) {
    for (auto& m : members_)
        if (platform::iequals(m.name, name)) return &m;
    return nullptr;
}

Collection::Collection(std::string source, std::vector<Variant> items)
    : DispatchBase(std::move(source)), items_(std::move(items)) {
    property("Count", [this] { return Variant(static_cast<long long>(items_.size())); });
    method("Item", 1, [this](Args a) {
        int64_t i = a[0].value.toLong();
        if (i < 0 || static_cast<uint64_t>(i) >= items_.size())
            fail(platform::err::SubscriptOutOfRange);
        return items_[static_cast<size_t>(i)];
    });
}

PropertyBag::PropertyBag(std::string source,
                         std::vector<std::pair<std::string, Variant>> properties)
    : DispatchBase(std::move(source)) {
    for (auto& [name, value] : properties)
        property(name, [v = std::move(value)] { return v; });
}

}  // namespace standins
