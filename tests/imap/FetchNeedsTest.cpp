// Which fetched header blocks leave the message class to the structure.
#include "platform/stores/imap/FetchNeeds.h"

#include <gtest/gtest.h>

using mv::stores::FetchNeeds;

namespace {

struct BlockCase {
    const char* name;
    const char* block;
    bool needsStructure;
};

const BlockCase kBlocks[] = {
    {"NoContentTypeIsPlainText", "Subject: hello\r\nMessage-ID: <a@b>\r\n\r\n", false},
    {"PlainText", "Content-Type: text/plain; charset=utf-8\r\n\r\n", false},
    {"HtmlOnly", "Message-ID: <a@b>\r\nContent-Type: text/html\r\n\r\n", false},
    {"AlternativeMayHoldACalendar", "Content-Type: multipart/alternative;\r\n boundary=\"x\"\r\n\r\n", true},
    {"MixedAnyCaseNoSpace", "content-type:Multipart/Mixed; boundary=y\r\n\r\n", true},
    {"FieldAfterOthers", "Subject: a: b\r\nMessage-ID: <a@b>\r\nContent-Type: multipart/related\r\n\r\n",
     true},
    {"DeliveryReport", "Content-Type: multipart/report; report-type=delivery-status; boundary=z\r\n\r\n",
     false},
    {"ReadReceiptFolded",
     "Content-Type: multipart/report;\r\n\treport-type=disposition-notification;\r\n\tboundary=z\r\n\r\n",
     false},
    {"OtherReportType", "Content-Type: multipart/report; report-type=feedback-report\r\n\r\n", true},
    {"CalendarMethodMayBeInTheText", "Content-Type: text/calendar; charset=utf-8\r\n\r\n", true},
    {"EmptyValue", "Content-Type:\r\n\r\n", true},
    {"BareLineEnds", "Subject: x\nContent-Type: multipart/alternative; boundary=q\n\n", true},
};

class MayHoldCalendar : public ::testing::TestWithParam<BlockCase> {};

TEST_P(MayHoldCalendar, OnlyWhenTheFieldLeavesTheClassOpen)
{
    EXPECT_EQ(FetchNeeds::MayHoldCalendar(GetParam().block), GetParam().needsStructure) << GetParam().block;
}

INSTANTIATE_TEST_SUITE_P(Blocks, MayHoldCalendar, ::testing::ValuesIn(kBlocks),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
