#pragma once

#include <mutex>
#include <string>

namespace reporter {

/// The last few events of this run of the program, one line each, for a technician to read. Any
/// thread may add. The file is this process's own, without a lock between processes.
class journal {
public:
    /// Empties the file at `path`, or makes it. `max_line_length` is in bytes, without the line's
    /// end.
    journal(const std::string& path, unsigned int max_lines, unsigned int max_line_length);

    /// Adds "<local time>::<first>::<second>", cut to the maximum length, line breaks as blanks.
    /// The oldest line goes when the file is full. A journal that cannot be read is logged and
    /// gives false. What could not be written does not show: the line is lost.
    bool add(const std::string& first, const std::string& second);

    std::string get_path() const { return _path; }

private:
    /// Throws what reading the file or the clock throws. The caller holds the mutex.
    void write_line(const std::string& first, const std::string& second) const;

    /// Held for a whole add().
    std::mutex _mutex;
    std::string _path;
    unsigned int _max_lines;
    unsigned int _max_line_length;
};

/// The journal of the process: 10 lines of 100 bytes in the data directory. The first call begins
/// it anew, so that a run without events leaves an earlier run's lines in place. Any thread.
journal& get_journal();

}  // namespace reporter
