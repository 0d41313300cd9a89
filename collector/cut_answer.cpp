#include "cut_answer.h"

#include <sstream>

namespace collector {
namespace {

std::string head_of(const httplib::Response& response) {
    std::ostringstream head;
    head << "HTTP/1.1 " << response.status << " Planned\r\n";
    for (const auto& [name, value] : response.headers) {
        head << name << ": " << value << "\r\n";
    }
    head << "Content-Length: " << response.body.size() << "\r\n\r\n";
    return head.str();
}

}  // namespace

std::string cut_answer(const httplib::Response& response, cut_point cut) {
    const std::string head = head_of(response);
    switch (cut) {
        case cut_point::IN_HEAD:
            return head.substr(0, head.size() / 2);
        case cut_point::IN_BODY:
            return head + response.body.substr(0, response.body.size() / 2);
        default:
            return "";
    }
}

}  // namespace collector
