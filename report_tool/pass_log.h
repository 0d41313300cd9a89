#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace report_tool {

/// One record of the platform's log, taken apart.
struct log_line {
    char priority = '?';  ///< as "I", "W" or "E"
    int process = 0;      ///< 0 where the line does not say
    /// Seconds since some moment, where the line has a time stamp.
    std::optional<double> time;
    std::string text;
};

/// Nothing for a line that does not begin a record of this system: the rest of one, or another's.
std::optional<log_line> read_log_line(const std::string& line);

/// One request, with all its tries.
struct posted {
    std::string path{};
    unsigned int tries = 0;
    double seconds = 0;
    long bytes = 0;
    int status = 0;       ///< HTTP's, or -N for libcurl's error N; 0 while there is no end
    std::string error{};  ///< libcurl's text
};

/// Reports that are sent together.
struct sent_chunk {
    std::vector<unsigned int> ids{};    ///< 0 for one that the log does not tell
    std::vector<unsigned int> known{};  ///< those that the server had already
    std::vector<int> codes{};           ///< for the ids without the known ones, as far as they go
    std::vector<posted> requests{};
    bool ended = false;

    /// Ids without the known ones.
    std::vector<unsigned int> uploaded() const;
};

/// A part of a pass and how long it took.
struct pass_step {
    std::string name;
    std::vector<sent_chunk> chunks{};
    std::size_t reports = 0;
    int pauses = 0;               ///< of 150 ms each
    double requests_seconds = 0;  ///< of its requests
    std::optional<double> begin{}, end{};
};

/// Warnings and errors that read the same.
struct told {
    char priority;
    std::string text;
    int times;
};

void print_complaints(const std::vector<told>& complaints);

/// One life of a process of this system, as its records show it.
class process_log {
public:
    void add(const log_line& line);

    bool is_pass = false;   ///< the agent, and not a program that saves
    bool finished = false;  ///< the sending came to its own end
    bool stopped = false;   ///< it was told to end before
    std::string gate;       ///< why nothing is sent
    int saved = 0, refused = 0;
    /// The platform's log is a ring, in which the first lines of a pass may be gone.
    std::vector<pass_step> steps{{"rest of a step"}};
    std::vector<told> complaints;

private:
    void begin_step(const std::string& name);
    void add_to_chunk(const std::string& text);
    void add_to_request(const std::string& text);
    void note_complaint(const log_line& line);

    std::vector<unsigned int> _ids;      ///< of the time under way
    std::size_t _next_id = 0;            ///< which of them is read
    std::deque<unsigned int> _read_ids;  ///< read, and not in a chunk
    long _codes_left = 0;
    bool _over = false;  ///< the work has ended
};

}  // namespace report_tool
