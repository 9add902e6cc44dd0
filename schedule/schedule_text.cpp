#include "schedule/schedule_text.h"

#include <cctype>
#include <cstdio>
#include <vector>

#include "platform/errors.h"
#include "platform/variant.h"

namespace kpm::schedule_text {

using platform::DateTime;

namespace {

std::string format(const char* fmt, int a, int b, int c) {
    char buf[32];
    std::snprintf(buf, sizeof buf, fmt, a, b, c);
    return buf;
}

[[noreturn]] void typeMismatch() { throw platform::makeError(platform::err::TypeMismatch); }

// "12" → 12; anything but 1 to `maxDigits` decimal digits is a mismatch.
int digits(const std::string& s, size_t maxDigits) {
    if (s.empty() || s.size() > maxDigits) typeMismatch();
    int v = 0;
    for (char c : s) {
        if (!std::isdigit(static_cast<unsigned char>(c))) typeMismatch();
        v = v * 10 + (c - '0');
    }
    return v;
}

std::vector<std::string> split(const std::string& s, const std::string& separators) {
    std::vector<std::string> parts(1);
    for (char c : s) {
        if (separators.find(c) != std::string::npos) parts.emplace_back();
        else parts.back() += c;
    }
    return parts;
}

}  // namespace

std::string stampYmd(const DateTime& t) { return format("%04d%02d%02d", t.year, t.month, t.day); }

std::string stampYmdHms(const DateTime& t) {
    return stampYmd(t) + format("%02d%02d%02d", t.hour, t.minute, t.second);
}

std::string dateDashed(const DateTime& t) { return format("%d-%d-%d", t.year, t.month, t.day); }

std::string dateDdmmyyyy(const DateTime& t) { return format("%02d%02d%04d", t.day, t.month, t.year); }

std::string dateMmddyyyy(const DateTime& t) { return format("%02d/%02d/%04d", t.month, t.day, t.year); }

DateTime dateOnly(const DateTime& t) {
    DateTime d = t;
    d.hour = d.minute = d.second = 0;
    return d;
}

std::string removeColons(std::string s) { return replaceAll(std::move(s), ":", ""); }

std::string replaceAll(std::string s, const std::string& what, const std::string& with) {
    if (what.empty()) return s;
    for (size_t pos = s.find(what); pos != std::string::npos; pos = s.find(what, pos + with.size()))
        s.replace(pos, what.size(), with);
    return s;
}

double textToNumber(const std::string& text) { return platform::Variant(text).toDouble(); }

int textToInt(const std::string& text) {
    int64_t v = platform::Variant(text).toLong();
    if (v < -32768 || v > 32767) throw platform::makeError(platform::err::Overflow);
    return static_cast<int>(v);
}

DateTime parseIniDate(const std::string& text) {
    std::string datePart = text.substr(0, text.find(' '));
    std::vector<std::string> p = split(datePart, "-/");
    if (p.size() != 3) typeMismatch();
    DateTime d;
    if (p[0].size() == 4) {
        d.year = digits(p[0], 4), d.month = digits(p[1], 2), d.day = digits(p[2], 2);
    } else if (p[2].size() == 4) {
        d.month = digits(p[0], 2), d.day = digits(p[1], 2), d.year = digits(p[2], 4);
    } else {
        typeMismatch();
    }
    if (!platform::isValid(d)) typeMismatch();
    return d;
}

DateTime atTimeOfDay(const DateTime& day, const std::string& time) {
    std::vector<std::string> p = split(time, ":");
    if (p.size() < 2 || p.size() > 3) typeMismatch();
    DateTime t = dateOnly(day);
    t.hour = digits(p[0], 2);
    t.minute = digits(p[1], 2);
    t.second = p.size() == 3 ? digits(p[2], 2) : 0;
    if (!platform::isValid(t)) typeMismatch();
    return t;
}

}  // namespace kpm::schedule_text
