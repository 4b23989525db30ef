// Rule preview and whole-run preview.

#include "EngineFixture.h"

#include "platform/mapi/MapiUtils.h"

using namespace mv;
using namespace mv::engine;
using namespace mv::engine::test;

namespace {

class RecordingPreviewForm : public PreviewForm {
public:
    void SetCaption(const QString& c) override { caption = c; }
    void SetLines(const QStringList& l) override { lines = l; }
    void ShowModal() override { ++shown; }
    QString caption;
    QStringList lines;
    int shown = 0;
};

using PreviewTest = EngineTest;

TEST_F(PreviewTest, OneRuleListsWithoutChanging)
{
    Mail("budget one", true);
    Mail("budget two");
    Mail("other");
    RecordingPreviewForm form;
    const QStringList lines = m_runner->PreviewRule(InsertRule({.name = "Budget", .subject = "budget", .active = 0}),
                                                    form);  // inactive rules preview too
    EXPECT_EQ(form.caption, "Rule Preview: Budget");
    EXPECT_EQ(Sorted(form.lines), Sorted({"budget one", "budget two"}));
    EXPECT_EQ(lines, form.lines);
    EXPECT_EQ(form.shown, 1);
    EXPECT_EQ(m_statusCalls, QStringList({"pointer:11", "pointer:0"}));
    EXPECT_EQ(Subjects("Inbox"), Sorted({"budget one", "budget two", "other"}));
    EXPECT_TRUE(Subjects("Archive").isEmpty());

    // Nothing matching still shows the form, empty; an unknown rule shows none.
    RecordingPreviewForm empty, none;
    m_runner->PreviewRule(InsertRule({.name = "Nothing", .subject = "zzz"}), empty);
    EXPECT_EQ(empty.shown, 1);
    EXPECT_TRUE(empty.lines.isEmpty());
    m_runner->PreviewRule(4242, none);
    EXPECT_EQ(none.shown, 0);

    // A missing folder is told, and no form shown.
    for (bool source : {true, false}) {
        RecordingPreviewForm gone;
        m_runner->PreviewRule(InsertRule({.name = "Gone", .src = source ? "" : "Inbox", .dst = source ? "Archive" : ""}),
                              gone);
        EXPECT_EQ(gone.shown, 0);
        ASSERT_EQ(m_answerer.shown().size(), 1u);
        EXPECT_EQ(m_answerer.shown()[0].text,
                  QString(source ? "The Source" : "The Destination") + " Folder for rule: Gone can not be found.");
        EXPECT_EQ(m_answerer.shown()[0].style, 48);
        m_answerer.clear();
    }
}

// The whole-run preview must list, rule by rule, what RunAllRules then
// moves: a rule sees what earlier rules took away or brought in, and the
// completed flag the first rule clears on the way.
TEST_F(PreviewTest, WholeRunPreviewMatchesTheRun)
{
    Mail("budget annual");
    Mail("budget q3", true);
    Mail("annual party");
    Mail("lunch");
    m_open.insert(mapi::MapiUtils::HrGetHexFromBinary(Mail("budget open")));
    Mail("annual old", false, "Archive");
    InsertRule({.name = "Budget to Archive", .subject = "budget"});
    InsertRule({.name = "Rest to Trash", .dst = "Trash"});
    InsertRule({.name = "Annual from Archive", .subject = "annual", .src = "Archive", .dst = "Drafts"});
    InsertRule({.name = "Completed", .flagStatus = 1, .src = "Archive", .dst = "Trash"});
    InsertRule({.name = "Gone", .src = "", .dst = "Trash"});

    const std::vector<RulePreview> preview = m_runner->PreviewAllRules();
    EXPECT_TRUE(m_answerer.shown().empty()) << "a preview asks nothing";
    ASSERT_EQ(preview.size(), 5u);
    EXPECT_EQ(Sorted(preview[0].subjects), Sorted({"budget annual", "budget q3"}));
    EXPECT_EQ(Sorted(preview[1].subjects), Sorted({"annual party", "lunch"}));
    EXPECT_EQ(Sorted(preview[2].subjects), Sorted({"annual old", "budget annual"}));
    EXPECT_TRUE(preview[3].subjects.isEmpty());
    EXPECT_EQ(preview[4].Count(), 0);
    EXPECT_FALSE(preview[4].problem.isEmpty());
    EXPECT_EQ(Subjects("Inbox").size(), 5) << "the preview moved something";

    m_answerer.Queue(6);
    const RunReport run = m_runner->RunAllRules();
    m_answerer.clear();
    ASSERT_EQ(run.rules.size(), 4u);
    for (size_t i = 0; i < run.rules.size(); ++i)
        EXPECT_EQ(Sorted(run.rules[i].subjects), Sorted(preview[i].subjects)) << run.rules[i].ruleName.toStdString();
    EXPECT_EQ(Subjects("Inbox"), QStringList{"budget open"});
    EXPECT_EQ(Subjects("Archive"), QStringList{"budget q3"});
}

}  // namespace
