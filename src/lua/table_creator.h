#pragma once

#include <string>
#include <vector>

#include "lua/lua_state.h"
#include "report.h"

namespace reporter::lua {

/// Fills the table on the top of a state's stack, and leaves it there when it goes. Setters return
/// the creator itself, so that calls chain; nothing may be pushed between them. Must not outlive
/// the state. Without memory for a value the interpreter panics, which ends the process.
class table_creator {
public:
    /// Pushes a new empty table.
    explicit table_creator(lua_state& state);

    /// The bytes as a Lua string.
    table_creator& set_field(const std::string& name, const std::string& value);
    /// Narrowed to the interpreter's integer type, which has 32 bits on the device.
    table_creator& set_field(const std::string& name, long long value);
    /// An array table of the bytes, counted from 1.
    table_creator& set_field(const std::string& name, const std::vector<unsigned char>& bytes);
    /// One string of the bytes.
    table_creator& set_field_as_string(const std::string& name,
                                       const std::vector<unsigned char>& bytes);
    /// The current value of a global; an unset one leaves the key absent.
    table_creator& set_from_global_value(const std::string& name, const char* global);

private:
    /// Ends the process when no table is on the top.
    void check_table() const;
    /// Pushes the name for the value that follows.
    void push_key(const std::string& name);

    // The name stands in the text of the assertion.
    // NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
    lua_State* _L;
};

/// The record as a new table on the top of the stack, in the form that the storage script gets. Its
/// bytes are copied.
table_creator create_report_table(lua_state& state, const report& record);
table_creator create_ext_table(lua_state& state, const ext_aggregation_data& record);

// Arguments of lua_state::call. They do not own the record, which must outlive the call.

/// A report to be saved, or to be judged by a filter.
class report_table {
public:
    explicit report_table(const report& record) : _record(&record) {}
    /// Pushes the record as one table.
    void export_to_lua(lua_state& state) const { create_report_table(state, *_record); }

private:
    const report* _record;
};

/// The names of a report to count again.
class ext_table {
public:
    explicit ext_table(const ext_aggregation_data& record) : _record(&record) {}
    /// Pushes nothing when there is no record.
    void export_to_lua(lua_state& state) const {
        if (_record != nullptr) {
            create_ext_table(state, *_record);
        }
    }

private:
    const ext_aggregation_data* _record;
};

}  // namespace reporter::lua
