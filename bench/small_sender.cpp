// The least that sends reports from a database: reads all of table "reports", posts them below
// 512 KiB at a time over mutual TLS, and deletes what was answered 200. It has no log, no gates, no
// schedule, no codes for single reports and no pauses.
// usage: small_sender URL PKI_DIR DATABASE HEAD    HEAD is what a request begins with
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

#include <curl/curl.h>
#include <sqlite3.h>

namespace {

constexpr std::size_t MAX_BODY = 524288;

std::size_t discard(char*, std::size_t size, std::size_t count, void*) {
    return size * count;
}

class server {
public:
    server(const char* url, const std::string& pki) {
        std::ifstream in(pki + "/client.pem", std::ios::binary);
        const std::string certificate{std::istreambuf_iterator<char>(in),
                                      std::istreambuf_iterator<char>()};
        curl_easy_setopt(_curl.get(), CURLOPT_URL, url);
        curl_easy_setopt(_curl.get(), CURLOPT_CAINFO, (pki + "/ca.pem").c_str());
        curl_easy_setopt(_curl.get(), CURLOPT_SSLCERT, (pki + "/client.pem").c_str());
        curl_easy_setopt(_curl.get(), CURLOPT_SSLKEY, (pki + "/client.key").c_str());
        curl_easy_setopt(_curl.get(), CURLOPT_KEYPASSWD, certificate.substr(28, 64).c_str());
        curl_easy_setopt(_curl.get(), CURLOPT_WRITEFUNCTION, discard);
        curl_easy_setopt(_curl.get(), CURLOPT_HTTPHEADER, _headers.get());
    }

    bool takes(const std::string& body) {
        curl_easy_setopt(_curl.get(), CURLOPT_POSTFIELDS, body.c_str());
        curl_easy_setopt(_curl.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        long status = 0;
        const CURLcode code = curl_easy_perform(_curl.get());
        curl_easy_getinfo(_curl.get(), CURLINFO_RESPONSE_CODE, &status);
        return code == CURLE_OK && status == 200;
    }

private:
    std::unique_ptr<CURL, void (*)(CURL*)> _curl{curl_easy_init(), curl_easy_cleanup};
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> _headers{
        curl_slist_append(nullptr, "Content-Type: application/json"), curl_slist_free_all};
};

class database {
public:
    explicit database(const char* path) {
        if (sqlite3_open_v2(path, &_db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
            throw std::runtime_error(sqlite3_errmsg(_db));
        }
    }
    database(const database&) = delete;
    database& operator=(const database&) = delete;
    ~database() { sqlite3_close(_db); }

    /// The next reports up to MAX_BODY, with commas, and the id of the last. Empty when none is
    /// left.
    std::string next_body(sqlite3_int64& last) {
        std::string body;
        sqlite3_stmt* rows = nullptr;
        sqlite3_prepare_v2(_db, "SELECT id, json FROM reports ORDER BY id", -1, &rows, nullptr);
        while (sqlite3_step(rows) == SQLITE_ROW) {
            const auto size = static_cast<std::size_t>(sqlite3_column_bytes(rows, 1));
            if (!body.empty() && body.size() + size > MAX_BODY) {
                break;
            }
            body += body.empty() ? "" : ",";
            body += reinterpret_cast<const char*>(sqlite3_column_text(rows, 1));
            last = sqlite3_column_int64(rows, 0);
        }
        sqlite3_finalize(rows);
        return body;
    }

    void remove_up_to(sqlite3_int64 last) {
        const std::string statement = "DELETE FROM reports WHERE id <= " + std::to_string(last);
        if (sqlite3_exec(_db, statement.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
            throw std::runtime_error(sqlite3_errmsg(_db));
        }
    }

private:
    sqlite3* _db = nullptr;
};

void send(const char* url, const char* pki, const char* path, const std::string& head) {
    server to(url, pki);
    database from(path);
    sqlite3_int64 last = 0;
    for (std::string body; !(body = from.next_body(last)).empty(); from.remove_up_to(last)) {
        if (!to.takes(head + body + "]}")) {
            throw std::runtime_error("the server did not take the reports");
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fputs("usage: small_sender URL PKI_DIR DATABASE HEAD\n", stderr);
        return 2;
    }
    curl_global_init(CURL_GLOBAL_ALL);
    try {
        send(argv[1], argv[2], argv[3], argv[4]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "small_sender: %s\n", error.what());
        return 1;
    }
    return 0;
}
