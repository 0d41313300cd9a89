#include "support/agent_run.h"

namespace test_support {
namespace {

class device_directory : public pass_test {
protected:
    // A tool of this machine, on the directory of this test.
    static child_process tool(const std::string& name, const strings& arguments) {
        return child_process(
            joined({"env", "TEV_BUILD=" TEV_HOST_BUILD, source_dir() / "tools" / name}, arguments));
    }
};

TEST_F(device_directory, is_set_up_by_known_keys_and_sends_to_the_collector_beside_it) {
    save(1);
    const std::string root = scratch_root();
    auto refused = tool("make-device", {"--installed", root, "sender.server_prot=1"});
    EXPECT_EQ(refused.wait(), 1);
    EXPECT_NE(refused.output().find("the nearest is \"sender.server_port\""), std::string::npos);

    // So that the keys come from the package, which fits the new authority.
    std::filesystem::remove_all(platform_dir() / "secure_storage");
    sender()["reporter_sending"] = false;
    const strings command = joined({root}, agent());
    EXPECT_EQ(tool("make-device", {"--installed", root, "sender.reporter_sending=true"}).wait(), 0);
    EXPECT_EQ(tool("with-collector", command).wait(), 0);
    EXPECT_EQ(stored(), 0);
}

}  // namespace
}  // namespace test_support
