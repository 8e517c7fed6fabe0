// SPDX-License-Identifier: Apache-2.0
// A report as one self-contained HTML page; the build embeds the parts in report/page.

#include "report/show/Page.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "common/text/Printable.h"
#include "report/show/Json.h"
#include "report/show/WholeFile.h"

// Embedded by PageParts.S, each with a NUL at its end.
extern "C" const char kPageHtml[], kPageCss[], kPageJs[], kLimitsMd[];

namespace report {

namespace {

// Stands for "<" in the logs, so that nothing in one can end its element; the page turns it back.
constexpr char kLessThan = '\x02';
// Stands for a carriage return in the logs, which the browser would take for the end of a line.
constexpr char kReturn = '\x03';

constexpr const char* kClosingTag = "</script>\n";

std::string escape(const std::string& text, const std::map<char, const char*>& escapes) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto found = escapes.find(c);
        if (found == escapes.end()) {
            out += c;
        } else {
            out += found->second;
        }
    }
    return out;
}

std::string openingTag(const Capture& capture) {
    const std::string name = escape(capture.name, {{'&', "&amp;"}, {'"', "&quot;"}, {'<', "&lt;"}});
    return "<script type=\"text/plain\" class=\"log\" data-name=\"" + name + "\">";
}

// The most bytes of each log, so that all of them together have no more than `room`.
size_t shareOf(const std::vector<Capture>& captures, size_t room) {
    std::vector<size_t> sizes;
    sizes.reserve(captures.size());
    for (const Capture& capture : captures) sizes.push_back(capture.info.content);
    std::sort(sizes.begin(), sizes.end());
    for (size_t i = 0; i < sizes.size(); ++i) {
        const size_t share = room / (sizes.size() - i);
        if (sizes[i] > share) return share;
        room -= sizes[i];
    }
    return SIZE_MAX;
}

// Passes a log on but for the middle of one that is too long, which goes by whole lines.
class LogExcerpt {
public:
    LogExcerpt(size_t size, size_t most, const Append& append)
        : mHead(size <= most ? size : most / 2),
          mTail(size <= most ? size : size - most / 2),
          mAppend(append) {}

    void add(std::string_view piece) {
        size_t head = std::min(mHead - std::min(mHead, mAt), piece.size());
        size_t tail = std::min(mTail - std::min(mTail, mAt), piece.size());
        if (head > 0 && head < piece.size()) head = piece.rfind('\n', head - 1) + 1;
        if (tail > 0 && tail < piece.size()) {
            const size_t feed = piece.find('\n', tail);
            if (feed != std::string_view::npos) tail = feed + 1;
        }
        append(piece.substr(0, head));
        const std::string_view middle = piece.substr(head, tail - head);
        mLines += std::count(middle.begin(), middle.end(), '\n');
        if (tail < piece.size() && !mGapSaid) {
            mGapSaid = true;
            if (mLast != '\n') append("\n");
            append("… " + text::grouped(mLines) + " lines left out\n");
        }
        append(piece.substr(tail));
        mAt += piece.size();
    }

private:
    void append(std::string_view text) {
        if (text.empty()) return;
        mLast = text.back();
        std::string safe(text);
        std::replace(safe.begin(), safe.end(), '<', kLessThan);
        std::replace(safe.begin(), safe.end(), '\r', kReturn);
        mAppend(safe);
    }

    const size_t mHead;  // bytes of the log's beginning
    const size_t mTail;  // where its end begins
    const Append& mAppend;
    size_t mAt = 0;
    size_t mLines = 0;  // left out
    bool mGapSaid = false;
    char mLast = '\n';
};

}  // namespace

void writePage(const Report& report, const std::string& path, size_t most) {
    // "<" is only in texts of the JSON, where the escape means the same.
    std::string data = "<script type=\"application/json\" id=\"report\">" +
                       escape(dump(toJson(report)), {{'<', "\\u003c"}}) + "</script>\n";
    std::string limits = kLimitsMd;
    std::replace(limits.begin(), limits.end(), '<', kLessThan);
    data += "<script type=\"text/plain\" id=\"limits-text\">" + limits + "</script>\n";
    constexpr size_t kGapLine = 64;
    size_t size = data.size() + strlen(kPageHtml) + strlen(kPageCss) + strlen(kPageJs);
    for (const Capture& capture : report.captures) {
        size += openingTag(capture).size() + strlen(kClosingTag) + kGapLine;
    }
    if (size > most) {
        throw std::runtime_error("cannot write " + path + ": takes " + text::grouped(size) +
                                 " bytes even without the logs");
    }
    const size_t share = shareOf(report.captures, most - size);

    writeWhole(path, [&](const Append& append) {
        std::string_view rest(kPageHtml);
        const auto fill = [&](std::string_view marker, std::string_view content) {
            const size_t at = rest.find(marker);
            append(rest.substr(0, at));
            append(content);
            rest.remove_prefix(at + marker.size());
        };
        fill("<!--STYLE-->", kPageCss);
        fill("<!--DATA-->", data);
        for (const Capture& capture : report.captures) {
            append(openingTag(capture));
            LogExcerpt excerpt(capture.info.content, share, append);
            readArchive(report.partition, capture.path, [&](const char* piece, size_t length) {
                excerpt.add({piece, length});
                return true;
            });
            append(kClosingTag);
        }
        fill("<!--SCRIPT-->", kPageJs);
        append(rest);
    });
}

}  // namespace report
