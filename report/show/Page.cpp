// SPDX-License-Identifier: Apache-2.0
// A report as one self-contained HTML page; the build embeds the parts in report/page.

#include "report/show/Page.h"

#include <algorithm>
#include <map>
#include <string_view>

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

void appendLog(const Capture& capture, const Append& append) {
    const std::string name = escape(capture.name, {{'&', "&amp;"}, {'"', "&quot;"}, {'<', "&lt;"}});
    append("<script type=\"text/plain\" class=\"log\" data-name=\"" + name + "\">");
    std::string text;
    readArchive(capture.path, [&](const char* data, size_t size) {
        text.assign(data, size);
        std::replace(text.begin(), text.end(), '<', kLessThan);
        std::replace(text.begin(), text.end(), '\r', kReturn);
        append(text);
        return true;
    });
    append("</script>\n");
}

void appendLimits(const Append& append) {
    std::string text = kLimitsMd;
    std::replace(text.begin(), text.end(), '<', kLessThan);
    append("<script type=\"text/plain\" id=\"limits-text\">" + text + "</script>\n");
}

void appendData(const Report& report, const Append& append) {
    // "<" is only in texts of the JSON, where the escape means the same.
    const std::string json = escape(dump(toJson(report)), {{'<', "\\u003c"}});
    append("<script type=\"application/json\" id=\"report\">" + json + "</script>\n");
    for (const Capture& capture : report.captures) appendLog(capture, append);
}

}  // namespace

void writePage(const Report& report, const std::string& path) {
    writeWhole(path, [&](const Append& append) {
        std::string_view rest(kPageHtml);
        const auto fill = [&](std::string_view marker, std::string_view content) {
            const size_t at = rest.find(marker);
            append(rest.substr(0, at));
            append(content);
            rest.remove_prefix(at + marker.size());
        };
        fill("<!--STYLE-->", kPageCss);
        fill("<!--DATA-->", "");
        appendData(report, append);
        appendLimits(append);
        fill("<!--SCRIPT-->", kPageJs);
        append(rest);
    });
}

}  // namespace report
