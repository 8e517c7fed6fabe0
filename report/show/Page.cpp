// SPDX-License-Identifier: Apache-2.0
// A report as one self-contained HTML page; the build embeds the parts in report/page.

#include "report/show/Page.h"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <string_view>

#include "report/show/Json.h"
#include "report/show/NewFile.h"

// Embedded by PageParts.S.
extern "C" const char kPageHtml[], kPageHtmlEnd[];
extern "C" const char kPageCss[], kPageCssEnd[];
extern "C" const char kPageJs[], kPageJsEnd[];
extern "C" const char kChartJs[], kChartJsEnd[];

namespace report {

namespace {

// Stands for "<" in the logs, so that nothing in one can end its element; the page turns it back.
constexpr char kLessThan = '\x02';

std::string_view part(const char* begin, const char* end) {
    return {begin, static_cast<size_t>(end - begin)};
}

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

void addLog(NewFile& file, const Capture& capture) {
    const std::string name = escape(capture.name, {{'&', "&amp;"}, {'"', "&quot;"}, {'<', "&lt;"}});
    file.add("<script type=\"text/plain\" class=\"log\" data-name=\"" + name + "\">");
    std::string text;
    readArchive(capture.path, [&](const char* data, size_t size) {
        text.assign(data, size);
        std::replace(text.begin(), text.end(), '<', kLessThan);
        file.add(text);
        return true;
    });
    file.add("</script>\n");
}

void addData(NewFile& file, const Report& report) {
    // "<" is only in texts of the JSON, where the escape means the same.
    const std::string json = escape(dump(toJson(report)), {{'<', "\\u003c"}});
    file.add("<script type=\"application/json\" id=\"report\">" + json + "</script>\n");
    for (const Capture& capture : report.captures) addLog(file, capture);
}

}  // namespace

void writePage(const Report& report, const std::string& path) {
    NewFile file(path);
    std::string_view rest = part(kPageHtml, kPageHtmlEnd);
    const auto upTo = [&](std::string_view marker) {
        const size_t at = rest.find(marker);
        if (at == std::string_view::npos) throw std::logic_error("the page's template is broken");
        file.add(rest.substr(0, at));
        rest.remove_prefix(at + marker.size());
    };
    const auto element = [&](const char* name, std::string_view content) {
        file.add(std::string("<") + name + ">\n");
        file.add(content);
        file.add(std::string("\n</") + name + ">");
    };
    upTo("<!--STYLE-->");
    element("style", part(kPageCss, kPageCssEnd));
    upTo("<!--CHART-->");
    element("script", part(kChartJs, kChartJsEnd));
    upTo("<!--DATA-->");
    addData(file, report);
    upTo("<!--SCRIPT-->");
    element("script", part(kPageJs, kPageJsEnd));
    file.add(rest);
    file.finish();
}

}  // namespace report
