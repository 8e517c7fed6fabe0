// SPDX-License-Identifier: Apache-2.0
// A report as one self-contained HTML page; page/ holds its parts, which the build embeds.

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string_view>

#include "Formats.h"

// Embedded by PageParts.S.
extern "C" const char kPageHtml[], kPageHtmlEnd[];
extern "C" const char kPageCss[], kPageCssEnd[];
extern "C" const char kPageJs[], kPageJsEnd[];
extern "C" const char kChartJs[], kChartJsEnd[];

namespace report {

namespace {

// Stands for "<" in the logs, so that nothing in one can end its element; the page turns it back.
constexpr char kLessThan = '\x02';

// A file that is only there once it is whole.
class NewFile {
public:
    explicit NewFile(const std::string& path)
        : mPath(path), mTemporary(path + ".part"), mFile(fopen(mTemporary.c_str(), "we")) {
        if (mFile == nullptr) fail();
    }
    ~NewFile() {
        if (mFile == nullptr) return;
        fclose(mFile);
        unlink(mTemporary.c_str());
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void add(std::string_view text) {
        if (fwrite(text.data(), 1, text.size(), mFile) < text.size()) fail();
    }

    void finish() {
        FILE* file = mFile;
        if (fflush(file) != 0) fail();
        mFile = nullptr;
        fclose(file);
        if (rename(mTemporary.c_str(), mPath.c_str()) != 0) {
            const int error = errno;
            unlink(mTemporary.c_str());
            errno = error;
            fail();
        }
    }

private:
    [[noreturn]] void fail() const {
        throw std::runtime_error("cannot write " + mPath + ": " + strerror(errno));
    }

    const std::string mPath;
    const std::string mTemporary;
    FILE* mFile;
};

std::string_view part(const char* begin, const char* end) {
    return {begin, static_cast<size_t>(end - begin)};
}

// JSON inside a script element: "<" only occurs within texts, where \u003c means the same.
std::string escapeJson(const std::string& json) {
    std::string out;
    out.reserve(json.size());
    for (const char c : json) {
        if (c == '<') {
            out += "\\u003c";
        } else {
            out += c;
        }
    }
    return out;
}

std::string escapeAttribute(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '<':
                out += "&lt;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

void addLog(NewFile& file, const Capture& capture) {
    file.add("<script type=\"text/plain\" class=\"log\" data-name=\"");
    file.add(escapeAttribute(capture.name));
    file.add("\">");
    std::string text;
    readArchive(capture.path, [&](const char* data, size_t size) {
        text.assign(data, size);
        for (char& c : text) {
            if (c == '<') c = kLessThan;
        }
        file.add(text);
        return true;
    });
    file.add("</script>\n");
}

void addData(NewFile& file, const Report& report) {
    file.add("<script type=\"application/json\" id=\"report\">");
    file.add(escapeJson(dump(toJson(report))));
    file.add("</script>\n");
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

void writeWhole(const std::string& path, const std::string& content) {
    NewFile file(path);
    file.add(content);
    file.finish();
}

}  // namespace report
