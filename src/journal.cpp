#include "journal.h"

#include <algorithm>
#include <exception>

#include "common.h"
#include "logging.h"

namespace reporter {

journal::journal(const std::string& path, unsigned int max_lines, unsigned int max_line_length)
    : _path(path), _max_lines(max_lines), _max_line_length(max_line_length) {
    write_file(_path, "");
}

bool journal::add(const std::string& first, const std::string& second) {
    const std::lock_guard<std::mutex> guard(_mutex);
    try {
        write_line(first, second);
        return true;
    } catch (const std::exception& error) {
        REPORTER_ERROR("can't write to journal: " << error.what());
        return false;
    }
}

void journal::write_line(const std::string& first, const std::string& second) const {
    std::string content = read_file(_path);
    const auto lines = static_cast<std::size_t>(std::count(content.begin(), content.end(), '\n'));
    std::string line = get_current_time() + "::" + first + "::" + second;
    line.resize(std::min<std::size_t>(line.size(), _max_line_length));
    // One event is one line, or the file would outgrow its number of lines.
    std::replace(line.begin(), line.end(), '\n', ' ');
    if (lines < _max_lines) {
        append_to_file(_path, line + "\n");
        return;
    }
    const std::size_t oldest_end = content.find('\n');
    content.erase(0, oldest_end == std::string::npos ? oldest_end : oldest_end + 1);
    write_file(_path, content + line + "\n");
}

journal& get_journal() {
    static journal instance("/opt/data/dpm/dplugins/tev-reporter-plugin/journal", 10, 100);
    return instance;
}

}  // namespace reporter
