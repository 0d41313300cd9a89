#pragma once

#include <memory>
#include <string>
#include <vector>

#include <json/json.h>

namespace collector {

/// Who sent a request.
struct sender {
    std::string client;  ///< subject of its certificate
    Json::Value facts;   ///< the request's header; "DUID" in it names the device
};

/// What became of the reports of one request.
struct receipt {
    unsigned kept = 0;
    unsigned repeated = 0;            ///< were there already, and are not kept again
    std::vector<std::string> cloned;  ///< uids that are there with another content, too
};

/// The reports that the server has, and the devices they came from. A report is known by its uid
/// and the hash of its content; this pair stays known longer than the report itself. The same uid
/// with another hash comes from a device whose store was copied from another one: both reports are
/// kept. All members may be called from several threads at once. They throw a std::exception when
/// the store is away; nothing was changed then.
class report_store {
public:
    report_store() = default;
    virtual ~report_store() = default;
    report_store(const report_store&) = delete;
    report_store& operator=(const report_store&) = delete;

    /// Keeps what is new of the reports, an array, and notes the contact. That is one transaction,
    /// and on the medium when this returns.
    virtual receipt keep(const sender& from, const Json::Value& reports) = 0;

    /// For each of the hashes, an array, whether there is a report with such a content. Notes the
    /// contact.
    virtual std::vector<bool> known(const sender& from, const Json::Value& hashes) = 0;

    /// Rows of a query that changes nothing, as an array of objects. The arguments are $1 and so
    /// on. What can be asked for is the same in each store: the view shown_reports and the table
    /// devices.
    virtual Json::Value rows(const std::string& sql, const std::vector<std::string>& arguments) = 0;
};

/// The store at a place: the file of an embedded database, "" for one in memory, or a postgresql://
/// URL. The latter may be away for now. Throws a std::exception when the former cannot be opened.
std::unique_ptr<report_store> open_store(const std::string& place);

/// Whether the place is that of a database that other processes serve.
bool is_server(const std::string& place);

/// JSON in one line.
std::string to_text(const Json::Value& value);

}  // namespace collector
