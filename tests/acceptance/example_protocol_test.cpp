// SPDX-License-Identifier: MIT
// Shows that a protocol needs only the headers in include/orvik.
#include "support/process.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>

namespace {

using TestSupport::Process;

/// A folder that is removed with the object.
struct Folder {
    Folder() { EXPECT_NE(nullptr, ::mkdtemp(path.data())); }
    ~Folder() { std::filesystem::remove_all(path); }

    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream{path + "/" + name} << text;
        return path + "/" + name;
    }

    std::string path = std::filesystem::temp_directory_path() / "number-files.XXXXXX";
};

TEST(ExampleProtocolTest, SendsNumbersFromFiles) {
    const Folder folder;
    const auto load = folder.write("load", "0.50 0.25 1/2\n");
    const auto count = folder.write("count", "-7\n");
    const auto description = folder.write(
        "device.json", R"({"id": "d", "ipAddress": "", "port": 0, "pullDelay": 10, "tags": [
            {"id": 1, "address": ")" +
                           load + R"(", "type": "float", "width": 64},
            {"id": 2, "address": ")" +
                           count + R"(", "type": "int", "signed": true, "width": 64}]})");
    Process steward{{STEWARD_PATH, "--description=" + description, "--batches=2", "--view=lines"}};
    const auto address = steward.readLine();  // "listening on 127.0.0.1:PORT"
    const Process daemon{{EXAMPLE_PATH, "--device-id=d", "--device-key=k",
                          "--steward-port=" + address.substr(address.rfind(':') + 1)}};
    EXPECT_EQ(0, steward.wait());
    EXPECT_THAT(steward.restOfOutput(), testing::HasSubstr("1=0.5 2=-7"));
}

}  // namespace
