// SPDX-License-Identifier: MIT
#include "opcua/device.hpp"

#include <gtest/gtest.h>

namespace PullappOpcUa {
namespace {

TEST(TagTest, NamesWhatIsWrongWithAnAddress) {
    const std::string notANamespace = "Invalid namespace for tag: ";
    const std::string notANumber = "Invalid numeric identifier for tag: ";
    const std::string noNamespace = "Invalid address, namespace index not found for tag: ";
    const std::string noIdentifier = "Invalid address, identifier not found for tag: ";
    const struct {
        std::string address;
        std::string error;  // the address follows
    } rows[]{
        {"", "Invalid address: "},
        {"ns=2", "Invalid address: "},
        {"ns=2;i=1;x", "Invalid address: "},
        {"ns=2;i=1;", "Invalid address: "},
        {"ns=2;ns=3", noIdentifier},
        {"ns=2;", noIdentifier},
        {"ns=2; i=5", noIdentifier},
        {"ns=2;I=5", noIdentifier},
        {"i=5;NS=2", noNamespace},
        {"i=1;i=2", noNamespace},
        {"x;y", noNamespace},
        {"ns=x;i=1", notANamespace},
        {"ns=;i=1", notANamespace},
        {"ns= 1;i=1", notANamespace},
        {"ns=4294967296;i=1", notANamespace},
        {"ns=+-1;i=1", notANamespace},
        {"ns=1;i=abc", notANumber},
        {"ns=1;i=", notANumber},
        {"ns=1;i=0x10", notANumber},
        {"ns=1;i=4294967296", notANumber},
        {"ns=1;i=1.0", notANumber},
    };
    for (const auto& row : rows) {
        Tag tag;
        tag.address = row.address;
        EXPECT_EQ(row.error + row.address, tag.parseAddress());
    }
}

TEST(TagTest, RefusesGuidWithoutItsElevenFields) {
    for (const auto* guid :
         {"", "1234", "72962b91-fa75-4ae6-8d28-b404dc7daf", "x", "72962b91fa754ae68d28b404dc7daf63",
          "72962b91-fa75-4ae6-8d28b404dc7daf63", "72962g91-fa75-4ae6-8d28-b404dc7daf63",
          "72962b91 -fa75-4ae6-8d28-b404dc7daf63", "072962b91-fa75-4ae6-8d28-b404dc7daf63"}) {
        Tag tag;
        tag.address = std::string{"ns=1;g="} + guid;
        EXPECT_EQ("Error parsing GUID identifier", tag.parseAddress()) << guid;
    }
}

TEST(DeviceTest, PreparesOneReadOfEveryTag) {
    const struct {
        std::string address;
        std::string nodeId;  // as the stack prints it
    } rows[]{
        {"ns=2;i=42", "ns=2;i=42"},
        {"s=abc;ns=1", "ns=1;s=abc"},
        {"ns=3;s=Line 1.T=x", "ns=3;s=Line 1.T=x"},
        {"ns=3;s=", "ns=3;s="},
        {std::string("ns=3;s=ab\0cd", 12), "ns=3;s=ab"},
        {"i=85;ns=0", "i=85"},
        {"ns=65537;i=-1", "ns=1;i=4294967295"},
        {"ns=-1;i=+7", "ns=65535;i=7"},
        {"ns=1;g=72962B91-fa75-4ae6-8d28-b404dc7daf63 etc",
         "ns=1;g=72962b91-fa75-4ae6-8d28-b404dc7daf63"},
        {"ns=1;g= 1-2- 3-0456-789abcd e f", "ns=1;g=00000001-0002-0003-0456-789abc0d0e0f"},
    };
    Device device;
    for (const auto& row : rows) {
        auto tag = std::make_shared<Tag>();
        tag->address = row.address;
        ASSERT_EQ("", Device::parseTag(*tag));
        ASSERT_EQ("", device.addTag(tag));
    }

    ASSERT_EQ("", device.parseDevice());

    ASSERT_EQ(std::size(rows), device.readRequest.nodesToReadSize);
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto& entry = device.readRequest.nodesToRead[i];
        Owned<UA_String, UA_TYPES_STRING> text;
        UA_NodeId_print(&entry.nodeId, &*text);
        EXPECT_EQ(rows[i].nodeId, bytesOf(*text));
        EXPECT_EQ(static_cast<UA_UInt32>(UA_ATTRIBUTEID_VALUE), entry.attributeId);
    }
}

TEST(DeviceTest, TakesLogInOptions) {
    const struct {
        std::string key;
        std::string value;
        std::string error;
        AuthenticationType type;
    } rows[]{
        {"password", "p", "", AuthenticationType::Anonymous},
        {"username", "u", "", AuthenticationType::Anonymous},
        {"authenticationtype", "username", "", AuthenticationType::Username},
        {"authenticationtype", "Anonymous", "Not supported", AuthenticationType::Username},
        {"authenticationtype", "certificate", "", AuthenticationType::Anonymous},
        {"authenticationtype", "username", "", AuthenticationType::Username},
        {"authenticationtype", "anonymous", "", AuthenticationType::Anonymous},
        {"user", "u2", "Not supported", AuthenticationType::Anonymous},
        {"Username", "u2", "Not supported", AuthenticationType::Anonymous},
        {"", "", "Not supported", AuthenticationType::Anonymous},
    };
    Device device;
    for (const auto& row : rows) {
        EXPECT_EQ(row.error, device.setProtocolOption(row.key, row.value)) << row.key;
        EXPECT_EQ(row.type, device.authenticationType) << row.value;
    }
    EXPECT_EQ("u", device.username);
    EXPECT_EQ("p", device.password);
}

}  // namespace
}  // namespace PullappOpcUa
