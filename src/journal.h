#pragma once

#include <mutex>
#include <string>

namespace reporter {

/// The last few events of this run of the program, one line each, for a technician to read.
/// Any thread may add; the file is this process's own.
class journal {
public:
    /// Begins with an empty file at `path`. `max_line_length` is in bytes, the line's end not
    /// counted.
    journal(const std::string& path, unsigned int max_lines, unsigned int max_line_length);

    /// Adds "<local time>::<first>::<second>", cut to the maximum length, line breaks as blanks;
    /// the oldest line goes when the file is full. A journal that cannot be read is logged and
    /// gives false; what could not be written does not show.
    bool add(const std::string& first, const std::string& second);

    std::string get_path() const { return _path; }

private:
    void write_line(const std::string& first, const std::string& second) const;

    std::mutex _mutex;
    std::string _path;
    unsigned int _max_lines;
    unsigned int _max_line_length;
};

/// The journal of the process: 10 lines of 100 bytes in the data directory. Any thread.
journal& get_journal();

}  // namespace reporter
