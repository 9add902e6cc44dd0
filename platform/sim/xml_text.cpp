#include "platform/sim/xml_text.h"

#include <cctype>
#include <optional>
#include <vector>

#include "platform/utf.h"

namespace platform::sim {

namespace {

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// encoding="..." of the declaration at the start, lower case; empty when none.
std::string declaredEncoding(const std::string& bytes) {
    if (bytes.compare(0, 5, "<?xml") != 0) return {};
    const size_t end = bytes.find("?>");
    const std::string decl = bytes.substr(0, end);
    const size_t at = decl.find("encoding");
    if (at == std::string::npos) return {};
    size_t q = decl.find_first_of("\"'", at);
    if (q == std::string::npos) return {};
    const size_t close = decl.find(decl[q], q + 1);
    if (close == std::string::npos) return {};
    return lower(decl.substr(q + 1, close - q - 1));
}

std::string fromUtf16Bytes(const std::string& bytes, size_t from, bool bigEndian) {
    std::u16string units;
    for (size_t i = from; i + 1 < bytes.size(); i += 2) {
        const auto a = static_cast<unsigned char>(bytes[i]), b = static_cast<unsigned char>(bytes[i + 1]);
        units += static_cast<char16_t>(bigEndian ? (a << 8 | b) : (b << 8 | a));
    }
    return utf8FromUtf16(units);
}

// The Windows code page an encoding name stands for; nullopt when MSXML would not know it.
std::optional<uint32_t> codePageOf(const std::string& name) {
    if (name == "iso-8859-1" || name == "latin1" || name == "iso_8859-1") return 28591;
    for (const char* prefix : {"windows-", "cp"}) {
        const std::string p = prefix;
        if (name.compare(0, p.size(), p) == 0 && name.size() > p.size() && name.size() <= p.size() + 5) {
            uint32_t n = 0;
            for (size_t i = p.size(); i < name.size(); ++i) {
                if (!std::isdigit(static_cast<unsigned char>(name[i]))) return std::nullopt;
                n = n * 10 + static_cast<uint32_t>(name[i] - '0');
            }
            return n;
        }
    }
    return std::nullopt;
}

class AnsiText final : public Dispatch {
public:
    AnsiText(std::shared_ptr<Dispatch> inner, const CodePage& codePage) : inner_(std::move(inner)), codePage_(codePage) {}

    Variant invoke(std::string_view member, CallKind kind, std::span<Arg> args) override {
        const bool fileName = iequals(member, "load");
        auto converts = [&](size_t i) {
            const std::string* text = args[i].value.text();
            return text && !(fileName && i == 0) && !isAscii(*text);
        };
        // Nearly every argument is ASCII: passed on as it is, nothing copied.
        bool any = false;
        for (size_t i = 0; i < args.size() && !any; ++i) any = converts(i);
        if (!any) return outward(inner_->invoke(member, kind, args));
        std::vector<Arg> in(args.begin(), args.end());
        for (size_t i = 0; i < in.size(); ++i)
            if (converts(i)) in[i].value = Variant(codePage_.toUtf8(*args[i].value.text()));
        return outward(inner_->invoke(member, kind, in));
    }

    std::vector<Variant> enumerate() override {
        std::vector<Variant> items = inner_->enumerate();
        for (Variant& v : items) v = outward(std::move(v));
        return items;
    }

private:
    Variant outward(Variant v) const {
        if (const std::string* text = v.text()) return isAscii(*text) ? v : Variant(codePage_.fromUtf8(*text));
        if (auto d = v.dispatch()) return Variant(std::shared_ptr<Dispatch>(std::make_shared<AnsiText>(d, codePage_)));
        return v;
    }

    std::shared_ptr<Dispatch> inner_;
    const CodePage& codePage_;
};

}  // namespace

bool decodeXmlBytes(const std::string& bytes, std::string& utf8, std::string& reason) {
    if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        utf8 = bytes.substr(3);
    } else if (bytes.compare(0, 2, "\xFF\xFE") == 0 || bytes.compare(0, 2, "\xFE\xFF") == 0) {
        utf8 = fromUtf16Bytes(bytes, 2, bytes[0] == '\xFE');
        return true;
    } else {
        const std::string name = declaredEncoding(bytes);
        if (name.empty() || name == "utf-8") {
            utf8 = bytes;
        } else if (name == "us-ascii") {
            utf8 = bytes;
        } else if (const auto cp = codePageOf(name)) {
            std::u16string wide;
            if (*cp == 28591) {
                for (char c : bytes) wide += static_cast<char16_t>(static_cast<unsigned char>(c));
            } else {
                try {
                    wide = CodePage::cached(*cp).toUtf16(bytes);
                } catch (const std::exception&) {
                    reason = "System does not support the specified encoding.";
                    return false;
                }
            }
            utf8 = utf8FromUtf16(wide);
            return true;
        } else {
            reason = "System does not support the specified encoding.";
            return false;
        }
    }
    if (!isUtf8(utf8)) {
        reason = "An invalid character was found in text content.";
        return false;
    }
    return true;
}

std::shared_ptr<Dispatch> withAnsiText(std::shared_ptr<Dispatch> dom, const CodePage& codePage) {
    return std::make_shared<AnsiText>(std::move(dom), codePage);
}

}  // namespace platform::sim
