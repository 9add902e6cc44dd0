#include "runner/text_diff.h"

#include <algorithm>

namespace kpmtest {

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

std::vector<std::string> lineDiff(const std::vector<std::string>& a, const std::vector<std::string>& b,
                                  size_t context) {
    // Common head and tail first: the usual change touches a few lines of a long file.
    size_t head = 0;
    while (head < a.size() && head < b.size() && a[head] == b[head]) ++head;
    size_t tail = 0;
    while (tail < a.size() - head && tail < b.size() - head && a[a.size() - 1 - tail] == b[b.size() - 1 - tail]) ++tail;
    const size_t n = a.size() - head - tail, m = b.size() - head - tail;

    std::vector<std::string> edits;  // the whole comparison, unchanged lines included
    for (size_t i = 0; i < head; ++i) edits.push_back("  " + a[i]);
    if (n * m > 4'000'000) {  // too big to align: all out, all in
        for (size_t i = 0; i < n; ++i) edits.push_back("- " + a[head + i]);
        for (size_t j = 0; j < m; ++j) edits.push_back("+ " + b[head + j]);
    } else {
        // Longest common subsequence of the middle parts.
        std::vector<std::vector<unsigned>> lcs(n + 1, std::vector<unsigned>(m + 1, 0));
        for (size_t i = n; i-- > 0;)
            for (size_t j = m; j-- > 0;)
                lcs[i][j] = a[head + i] == b[head + j] ? lcs[i + 1][j + 1] + 1 : std::max(lcs[i + 1][j], lcs[i][j + 1]);
        size_t i = 0, j = 0;
        while (i < n || j < m) {
            if (i < n && j < m && a[head + i] == b[head + j]) {
                edits.push_back("  " + a[head + i++]);
                ++j;
            } else if (i < n && (j == m || lcs[i + 1][j] >= lcs[i][j + 1])) {
                edits.push_back("- " + a[head + i++]);
            } else {
                edits.push_back("+ " + b[head + j++]);
            }
        }
    }
    for (size_t i = a.size() - tail; i < a.size(); ++i) edits.push_back("  " + a[i]);

    // Unchanged runs shortened to their context.
    std::vector<std::string> out;
    for (size_t k = 0; k < edits.size();) {
        if (edits[k][0] != ' ') {
            out.push_back(edits[k++]);
            continue;
        }
        size_t end = k;
        while (end < edits.size() && edits[end][0] == ' ') ++end;
        const size_t keepHead = k == 0 ? 0 : context, keepTail = end == edits.size() ? 0 : context;
        if (end - k > keepHead + keepTail) {
            out.insert(out.end(), edits.begin() + static_cast<long>(k), edits.begin() + static_cast<long>(k + keepHead));
            out.push_back("  ...");
            out.insert(out.end(), edits.begin() + static_cast<long>(end - keepTail), edits.begin() + static_cast<long>(end));
        } else {
            out.insert(out.end(), edits.begin() + static_cast<long>(k), edits.begin() + static_cast<long>(end));
        }
        k = end;
    }
    return out;
}

}  // namespace kpmtest
