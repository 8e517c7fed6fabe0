// SPDX-License-Identifier: Apache-2.0
// A fleet in a ClickHouse cluster: what a maker's whole fleet is kept in.

#include "fleet/store/ClickHouse.h"

#include <curl/curl.h>
#include <stdlib.h>

#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

#include "common/text/Printable.h"
#include "fleet/store/Queries.h"

namespace fleet {

namespace {

using Json = nlohmann::json;

constexpr int64_t kSchemaVersion = 1;  // of fleet/clickhouse/schema.sql
constexpr long kConnectMs = 10000;
constexpr size_t kMostOfAnswer = 256UL << 20;  // bytes
constexpr size_t kMostOfQuery = 200000;        // bytes that a server reads by default
constexpr size_t kMostOfError = 300;           // bytes that are shown
constexpr int kDeepest = 4;                    // levels of an answer, which has three

std::string environment(const char* name) {
    const char* value = getenv(name);
    return value == nullptr ? "" : value;
}

// Of what a server says about an error, or of a page that something else sends.
std::string oneLine(const std::string& text) {
    return text::shortened(text::printable(text.substr(0, text.find('\n'))), kMostOfError);
}

Cell cellOf(const Json& value, bool isNumber) {
    if (!isNumber) return value.get<std::string>();
    if (value.is_number_integer()) return value.get<int64_t>();
    // 64 bits are more than a JSON number is sure to hold, so they come as text.
    const std::string& digits = value.get_ref<const std::string&>();
    size_t end = 0;
    const int64_t number = std::stoll(digits, &end);
    if (end != digits.size()) throw std::invalid_argument(digits);
    return number;
}

// Of FORMAT JSONCompact. Throws some std::exception where it is not such an answer.
std::vector<Row> rowsOf(const std::string& answer) {
    const Json parsed = Json::parse(answer, [](int depth, Json::parse_event_t, Json&) {
        return depth <= kDeepest;
    });
    std::vector<bool> numbers;
    for (const Json& column : parsed.at("meta")) {
        numbers.push_back(column.at("type").get_ref<const std::string&>().find("Int") !=
                          std::string::npos);
    }
    std::vector<Row> rows;
    for (const Json& values : parsed.at("data")) {
        Row& row = rows.emplace_back();
        for (size_t i = 0; i < numbers.size(); ++i) {
            row.push_back(cellOf(values.at(i), numbers[i]));
        }
    }
    if (parsed.at("rows") != rows.size()) throw std::length_error("rows are missing");
    return rows;
}

struct EndUrl {
    void operator()(CURLU* url) const {
        curl_url_cleanup(url);
    }
    void operator()(CURL* transfer) const {
        curl_easy_cleanup(transfer);
    }
    void operator()(char* text) const {
        curl_free(text);
    }
};

}  // namespace

std::string quoted(const std::string& text) {
    std::string literal = "'";
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) {
            constexpr const char* kDigits = "0123456789abcdef";
            literal += {'\\', 'x', kDigits[c >> 4], kDigits[c & 15]};
            continue;
        }
        if (c == '\'' || c == '\\') literal += '\\';
        literal += c;
    }
    return literal + "'";
}

class ClickHouse::Connection {
public:
    Connection(const std::string& url, int seconds) : mTransfer(curl_easy_init()) {
        if (mTransfer == nullptr) throw std::bad_alloc();
        readUrl(url);
        set(CURLOPT_ERRORBUFFER, mError);
        set(CURLOPT_PROTOCOLS_STR, "http,https");
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_CONNECTTIMEOUT_MS, kConnectMs);
        // It may think for so long, and stop for so long in the middle.
        set(CURLOPT_LOW_SPEED_LIMIT, 1L);
        set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(seconds));
        set(CURLOPT_WRITEFUNCTION, &Connection::receive);
        set(CURLOPT_WRITEDATA, this);
        logIn();
    }

    std::vector<Row> ask(const std::string& sql) {
        const std::string query = sql + "\nFORMAT JSONCompact";
        // A user who may only read may set nothing, so nothing is set without need.
        std::string url = mUrl;
        if (query.size() > kMostOfQuery) {
            url += "&max_query_size=" + std::to_string(2 * query.size());
        }
        set(CURLOPT_URL, url.c_str());
        set(CURLOPT_POSTFIELDS, query.data());
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(query.size()));
        mAnswer.clear();
        mError[0] = '\0';
        mTooLarge = false;
        const CURLcode result = curl_easy_perform(mTransfer.get());
        if (mTooLarge) fail("its answer has more than " + text::grouped(kMostOfAnswer) + " bytes");
        if (result != CURLE_OK) fail(mError[0] != '\0' ? mError : curl_easy_strerror(result));
        long status = 0;
        curl_easy_getinfo(mTransfer.get(), CURLINFO_RESPONSE_CODE, &status);
        if (status != 200) fail("HTTP status " + std::to_string(status) + ": " + oneLine(mAnswer));
        try {
            return rowsOf(mAnswer);
        } catch (const std::exception&) {
            fail("its answer is no whole answer of ClickHouse: " + oneLine(mAnswer));
        }
    }

    [[noreturn]] void fail(const std::string& why) const {
        throw std::runtime_error(mShown + ": " + text::printable(why));
    }

private:
    template <typename Value>
    void set(CURLoption option, Value value) {
        const CURLcode result = curl_easy_setopt(mTransfer.get(), option, value);
        if (result != CURLE_OK) fail(curl_easy_strerror(result));
    }

    void readUrl(const std::string& url) {
        const std::unique_ptr<CURLU, EndUrl> parts(curl_url());
        const auto part = [&](CURLUPart which, unsigned flags = 0) {
            char* text = nullptr;
            curl_url_get(parts.get(), which, &text, flags);
            const std::unique_ptr<char, EndUrl> owned(text);
            return std::string(text == nullptr ? "" : text);
        };
        const bool read = curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
        const std::string scheme = part(CURLUPART_SCHEME);
        if (!read || (scheme != "http" && scheme != "https")) {
            throw std::runtime_error("not the URL of a ClickHouse node, as http://node:8123: " +
                                     url);
        }
        if (!part(CURLUPART_USER).empty() || !part(CURLUPART_PASSWORD).empty()) {
            throw std::runtime_error(
                    "a URL on the command line can be seen by others: give user and password in "
                    "BOOTVIGIL_CLICKHOUSE_USER and BOOTVIGIL_CLICKHOUSE_PASSWORD, or in ~/.netrc");
        }
        std::string database = part(CURLUPART_PATH, CURLU_URLDECODE).substr(1);
        if (!database.empty() && database.back() == '/') database.pop_back();
        if (database.empty()) database = "bootvigil";
        for (const CURLUPart none : {CURLUPART_QUERY, CURLUPART_FRAGMENT}) {
            curl_url_set(parts.get(), none, nullptr, 0);
        }
        curl_url_set(parts.get(), CURLUPART_PATH, "/", 0);
        mShown = part(CURLUPART_URL);
        // The whole answer or an error: the server does not begin to send one that may fail.
        for (const std::string& argument :
             {"database=" + database, std::string("wait_end_of_query=1")}) {
            curl_url_set(parts.get(), CURLUPART_QUERY, argument.c_str(),
                         CURLU_APPENDQUERY | CURLU_URLENCODE);
        }
        mUrl = part(CURLUPART_URL);
    }

    void logIn() {
        const std::string user = environment("BOOTVIGIL_CLICKHOUSE_USER");
        const std::string password = environment("BOOTVIGIL_CLICKHOUSE_PASSWORD");
        if (!user.empty() || !password.empty()) {
            set(CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
            set(CURLOPT_USERNAME, user.empty() ? "default" : user.c_str());
            set(CURLOPT_PASSWORD, password.c_str());
            return;
        }
        set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_OPTIONAL));
        const std::string file = environment("NETRC");
        if (!file.empty()) set(CURLOPT_NETRC_FILE, file.c_str());
    }

    static size_t receive(const char* data, size_t, size_t size, void* self) {
        auto* connection = static_cast<Connection*>(self);
        connection->mTooLarge = connection->mAnswer.size() + size > kMostOfAnswer;
        if (connection->mTooLarge) return CURL_WRITEFUNC_ERROR;
        connection->mAnswer.append(data, size);
        return size;
    }

    std::unique_ptr<CURL, EndUrl> mTransfer;
    std::string mUrl, mShown;
    std::string mAnswer;
    bool mTooLarge = false;
    char mError[CURL_ERROR_SIZE] = {};
};

ClickHouse::ClickHouse(const std::string& url, int seconds)
    : mConnection(std::make_unique<Connection>(url, seconds)) {
    const std::vector<Row> rows = mConnection->ask("SELECT version FROM schema_version");
    const Cell* version = rows.size() == 1 && rows[0].size() == 1 ? rows[0].data() : nullptr;
    const int64_t* number = version == nullptr ? nullptr : std::get_if<int64_t>(version);
    if (number == nullptr) mConnection->fail("has no version of its tables");
    if (*number != kSchemaVersion) {
        mConnection->fail("its tables are of version " + std::to_string(*number) +
                          ", and this program reads version " + std::to_string(kSchemaVersion));
    }
}

ClickHouse::~ClickHouse() = default;

std::vector<Row> ClickHouse::run(const std::string& query, const Parameters& parameters) {
    return mConnection->ask(fillIn(queryText(query), [&](const std::string& name) {
        const Parameter& parameter = parameters.at(name);
        if (const auto* number = std::get_if<int64_t>(&parameter)) return std::to_string(*number);
        if (const auto* text = std::get_if<std::string>(&parameter)) return quoted(*text);
        std::string list;
        for (const std::string& text : std::get<std::vector<std::string>>(parameter)) {
            list += (list.empty() ? "" : ", ") + quoted(text);
        }
        return list;
    }));
}

}  // namespace fleet
