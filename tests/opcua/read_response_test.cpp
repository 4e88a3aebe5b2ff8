// SPDX-License-Identifier: MIT
#include "opcua/read_response.hpp"

#include "support/opcua_values.hpp"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace PullappOpcUa {
namespace {

using Orvik::PushInterface::TagType;
using TestSupport::dataValue;
using TestSupport::scalar;

void addTags(Device& device, const std::vector<TagType>& types) {
    for (const auto type : types) {
        const auto tag = std::make_shared<Tag>();
        tag->id = static_cast<std::uint16_t>(device.tags.size());
        tag->address = "ns=1;i=" + std::to_string(tag->id);
        tag->tagType = type;
        EXPECT_EQ("", device.addTag(tag));
    }
}

ReadResponse responseOf(const std::vector<UA_DataValue>& results) {
    ReadResponse response;
    response->resultsSize = results.size();
    void* copies = nullptr;
    EXPECT_EQ(UA_STATUSCODE_GOOD, UA_Array_copy(results.data(), results.size(), &copies,
                                                &UA_TYPES[UA_TYPES_DATAVALUE]));
    response->results = static_cast<UA_DataValue*>(copies);
    return response;
}

TEST(ReadResponseTest, NamesTheValueThatCannotBeHad) {
    UA_Boolean boolean = true;
    UA_Int16 number = 7;
    UA_String null{};
    const auto good = scalar(boolean, UA_TYPES_BOOLEAN);
    const auto value = scalar(number, UA_TYPES_INT16);
    const auto nullString = scalar(null, UA_TYPES_STRING);
    auto array = value;
    array.arrayLength = 1;
    const UA_Variant empty{};
    const std::string notScalar = "UAvariant type not supported for tag: ns=1;i=1";
    const std::string wrong = "Wrong type for tag: ns=1;i=1 type should be ";
    const std::string noSensor = "BADSENSORFAILURE";
    const std::string noReason = "BADUNEXPECTEDERROR";
    const struct {
        TagType tagType;
        UA_DataValue result;
        std::string verifyError;
        std::string pullError;
    } rows[]{
        {TagType::Int16, dataValue(&value), "", ""},
        {TagType::Int16, dataValue(&value, UA_STATUSCODE_UNCERTAINSUBNORMAL), "", ""},
        {TagType::Int32, dataValue(&value), wrong + "int16", wrong + "int16"},
        {TagType::String, dataValue(&nullString), "", wrong + "string"},
        {TagType::Int16, dataValue(&array), notScalar, notScalar},
        {TagType::Int16, dataValue(&empty), notScalar, notScalar},
        {TagType::Int16, dataValue(nullptr, UA_STATUSCODE_BADSENSORFAILURE), noSensor, noSensor},
        {TagType::Int16, dataValue(nullptr), noReason, noReason},
        {TagType::Unknown, dataValue(&value), "unsupported tag type: ns=1;i=1", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.verifyError + " / " + row.pullError);
        Device device;
        addTags(device, {TagType::Bool, row.tagType});
        const auto response = responseOf({dataValue(&good), row.result});
        std::string batch;

        EXPECT_EQ(UA_STATUSCODE_GOOD, statusOf(response, 2));
        EXPECT_EQ(row.verifyError, checkTypes(device, response));
        EXPECT_EQ(row.pullError, appendBatch(batch, device, response));
        if (row.pullError.empty()) {
            EXPECT_EQ(row.tagType == TagType::Int16 ? "0=t\n1=7\n" : "0=t\n1=?\n", batch);
        }
    }
}

TEST(ReadResponseTest, HasTheStatusOfTheServiceOrItsFirstResult) {
    UA_Int16 number = 7;
    const auto value = scalar(number, UA_TYPES_INT16);
    const auto good = dataValue(&value);
    const auto uncertain = dataValue(&value, UA_STATUSCODE_UNCERTAINSUBNORMAL);
    const struct {
        UA_StatusCode service;
        std::vector<UA_DataValue> results;
        std::size_t tags;
        UA_StatusCode status;
    } rows[]{
        {UA_STATUSCODE_GOOD, {good, good}, 2, UA_STATUSCODE_GOOD},
        {UA_STATUSCODE_GOOD, {good, uncertain}, 2, UA_STATUSCODE_GOOD},
        {UA_STATUSCODE_GOOD, {uncertain, good}, 2, UA_STATUSCODE_UNCERTAINSUBNORMAL},
        {UA_STATUSCODE_GOOD, {uncertain}, 2, UA_STATUSCODE_BADUNEXPECTEDERROR},
        {UA_STATUSCODE_GOOD, {good, good}, 1, UA_STATUSCODE_BADUNEXPECTEDERROR},
        {UA_STATUSCODE_GOOD, {}, 1, UA_STATUSCODE_BADUNEXPECTEDERROR},
        {UA_STATUSCODE_GOOD, {}, 0, UA_STATUSCODE_GOOD},
        {UA_STATUSCODE_BADTIMEOUT, {uncertain}, 2, UA_STATUSCODE_BADTIMEOUT},
    };
    for (const auto& row : rows) {
        auto response = responseOf(row.results);
        response->responseHeader.serviceResult = row.service;
        EXPECT_EQ(row.status, statusOf(response, row.tags)) << row.status;
    }
}

}  // namespace
}  // namespace PullappOpcUa
