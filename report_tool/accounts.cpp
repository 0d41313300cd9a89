#include <iostream>
#include <stdexcept>

#include <json/value.h>

#include "command.h"
#include "output.h"
#include "owner.h"
#include "store.h"

namespace report_tool {
namespace {

struct line {
    const char* name;
    const char* meaning;
};
constexpr line lines[] = {
    {"saved", "occurrences taken"},
    {"joined", "of them counted with a stored report"},
    {"removed", "sent, refused for good by the server, known to it, or removed by hand"},
    {"dropped_space", "dropped to stay within db_max_size"},
    {"dropped_age", "dropped after more than max_age_days days with a pass"},
    {"stored", "in the store now"},
    {"refused", "reports too large for the store, not part of saved"},
    {"set_aside", "times that a database was set aside"},
};

// Empty while there is no store.
Json::Value read_accounts() {
    Json::Value look = ask_store_if_any("store");
    if (look.empty()) {
        return look;
    }
    if (!look["accounts"].isObject()) {
        throw std::runtime_error(look.get("error", "the store has no accounts").asString());
    }
    Json::Value accounts;
    for (const line& account : lines) {
        accounts[account.name] = look["accounts"][account.name].asInt64();
    }
    accounts["stored"] = look["stored"].asInt64();
    return accounts;
}

int show_accounts(const common_options& options) {
    become_owner();
    const Json::Value accounts = read_accounts();
    if (options.json) {
        print_json(accounts);
        return done;
    }
    if (accounts.empty()) {
        std::cout << "there is no store yet: the next call of the agent makes it\n";
        return done;
    }
    table rows({"account", "count", ""});
    for (const line& account : lines) {
        rows.add({account.name, accounts[account.name].asString(), account.meaning});
    }
    rows.print();
    std::cout << "\nsaved = removed + dropped_space + dropped_age + stored\n";
    return done;
}

}  // namespace

command accounts_command() {
    return {"accounts", "What became of every occurrence that the store took", [](CLI::App&) {},
            show_accounts};
}

}  // namespace report_tool
