#include "modules/posting.h"

#include <algorithm>

#include "configuration.h"
#include "http_session.h"
#include "logging.h"

namespace reporter::modules {
namespace {

constexpr unsigned int max_tries = 10;

}  // namespace

std::pair<int, std::string> do_post_request(const config_helper& config, const std::string& path,
                                            const std::string& body) {
    REPORTER_INFO("try to do post request( " << path << " )");
    REPORTER_INFO("request size: " << body.size());
    auto* session = create_http_session(config, path);
    const auto tries =
        std::clamp(config.get<unsigned int>("max_count_sending_tries"), 1U, max_tries);
    int status = 0;
    for (unsigned int current = 1; current <= tries && status <= 0; ++current) {
        REPORTER_INFO("current try: " << current << " max count tries: " << tries);
        status = session->post(body);
    }
    std::string answer = std::move(session->reply);
    REPORTER_INFO("response status code: " << status);
    REPORTER_INFO("response: " << answer);
    remove_http_session(path);
    return {status, std::move(answer)};
}

}  // namespace reporter::modules
