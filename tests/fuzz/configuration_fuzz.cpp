#include "configuration.h"

#include "fuzz.h"
#include "json_io.h"

namespace {

template <class T>
void look_up(reporter::config_helper helper, const std::string& key) {
    try {
        const T value = helper.get<T>(key);
        assert(helper.get<T>(key) == value);  // The first left the cursor where it was.
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace

void fuzz_one(const std::string& input) {
    try {
        const reporter::config_helper root(reporter::parse_config(input), {});
        // Scripts get the document as text.
        const Json::Value copy = reporter::parse_config(reporter::json_styled(root.root()));
        assert(copy.type() == root.root().type());
        for (const char* key : {"db_max_size", "processor.dispatching_time", ".", "a..b"}) {
            look_up<bool>(root, key);
            look_up<unsigned int>(root, key);
            look_up<std::string>(root, key);
            root.get_helper("sender").get<std::string>(key, "default");
        }
    } catch (const std::exception&) {
        return;  // No JSON, or no object.
    }
}
