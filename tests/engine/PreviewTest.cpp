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

class PreviewTest : public EngineTest, public ::testing::WithParamInterface<bool> {
protected:
    void SetUp() override
    {
        m_useMaildir = GetParam();
        EngineTest::SetUp();
    }
    QByteArray Mail(const QString& folder, const QString& subject, bool completed = false)
    {
        Msg m;
        m.subject = subject;
        if (completed) m.flags.keywords << "$Completed";
        return Add(folder, m);
    }
    int Rule(const QString& name, const QString& subject, const QString& src, const QString& dst, int active = -1)
    {
        RuleDef r;
        r.name = name;
        r.subject = subject;
        r.src = src;
        r.dst = dst;
        r.active = active;
        return InsertRule(r);
    }
};

TEST_P(PreviewTest, OneRuleListsWithoutChanging)
{
    Mail("Inbox", "budget one", true);
    Mail("Inbox", "budget two");
    Mail("Inbox", "other");
    const int id = Rule("Budget", "budget", "Inbox", "Archive", 0);  // inactive rules preview too
    RecordingPreviewForm form;
    const QStringList lines = m_runner->PreviewRule(id, form);
    EXPECT_EQ(form.caption, "Rule Preview: Budget");
    EXPECT_EQ(Sorted(form.lines), Sorted({"budget one", "budget two"}));
    EXPECT_EQ(lines, form.lines);
    EXPECT_EQ(form.shown, 1);
    EXPECT_EQ(m_statusCalls, QStringList({"pointer:11", "pointer:0"}));
    EXPECT_EQ(Subjects("Inbox"), Sorted({"budget one", "budget two", "other"}));
    EXPECT_TRUE(Subjects("Archive").isEmpty());

    // Nothing matching still shows the form, empty; an unknown rule shows none.
    RecordingPreviewForm empty, none;
    m_runner->PreviewRule(Rule("Nothing", "zzz", "Inbox", "Archive"), empty);
    EXPECT_EQ(empty.shown, 1);
    EXPECT_TRUE(empty.lines.isEmpty());
    m_runner->PreviewRule(4242, none);
    EXPECT_EQ(none.shown, 0);
}

TEST_P(PreviewTest, MissingFolderTellsAndShowsNoForm)
{
    for (bool source : {true, false}) {
        RecordingPreviewForm form;
        const int id = source ? Rule("Gone", "", "", "Archive") : Rule("Gone", "", "Inbox", "");
        m_runner->PreviewRule(id, form);
        EXPECT_EQ(form.shown, 0);
        ASSERT_EQ(m_answerer.shown().size(), 1u);
        EXPECT_EQ(m_answerer.shown()[0].text,
                  QString(source ? "The Source" : "The Destination") + " Folder for rule: Gone can not be found.");
        EXPECT_EQ(m_answerer.shown()[0].style, 48);
        m_answerer.clear();
    }
}

// The whole-run preview must list, rule by rule, what RunAllRules then moves.
TEST_P(PreviewTest, WholeRunPreviewMatchesTheRun)
{
    Mail("Inbox", "budget annual");
    Mail("Inbox", "budget q3", true);
    Mail("Inbox", "annual party");
    Mail("Inbox", "lunch");
    const QByteArray open = Mail("Inbox", "budget open");
    Mail("Archive", "annual old");
    m_open.insert(mapi::MapiUtils::HrGetHexFromBinary(open));
    Rule("Budget to Archive", "budget", "Inbox", "Archive");
    Rule("Rest to Trash", "", "Inbox", "Trash");                 // must not list what Budget takes
    Rule("Annual from Archive", "annual", "Archive", "Drafts");  // sees what Budget brings in
    Rule("Gone", "", "", "Trash");

    const std::vector<RulePreview> preview = m_runner->PreviewAllRules();
    EXPECT_TRUE(m_answerer.shown().empty()) << "a preview asks nothing";
    ASSERT_EQ(preview.size(), 4u);
    EXPECT_EQ(Sorted(preview[0].subjects), Sorted({"budget annual", "budget q3"}));
    EXPECT_EQ(Sorted(preview[1].subjects), Sorted({"annual party", "lunch"}));
    EXPECT_EQ(Sorted(preview[2].subjects), Sorted({"annual old", "budget annual"}));
    EXPECT_EQ(preview[3].Count(), 0);
    EXPECT_FALSE(preview[3].problem.isEmpty());
    EXPECT_EQ(Subjects("Inbox").size(), 5) << "the preview moved something";

    m_answerer.Queue(6);
    const RunReport run = m_runner->RunAllRules();
    m_answerer.clear();
    ASSERT_EQ(run.rules.size(), 3u);
    for (size_t i = 0; i < run.rules.size(); ++i)
        EXPECT_EQ(Sorted(run.rules[i].subjects), Sorted(preview[i].subjects)) << run.rules[i].ruleName.toStdString();
    EXPECT_EQ(Subjects("Inbox"), QStringList{"budget open"});
}

TEST_P(PreviewTest, WholeRunPreviewSeesTheFlagClearedOnTheWay)
{
    // The first rule clears the completed flag before moving the mail, so a
    // later rule asking for completed mail in the destination finds none.
    Mail("Inbox", "done", true);
    Rule("Everything", "", "Inbox", "Archive");
    RuleDef completed;
    completed.name = "Completed";
    completed.src = "Archive";
    completed.dst = "Trash";
    completed.flagStatus = 1;
    InsertRule(completed);

    const auto preview = m_runner->PreviewAllRules();
    ASSERT_EQ(preview.size(), 2u);
    EXPECT_EQ(preview[0].subjects, QStringList{"done"});
    EXPECT_TRUE(preview[1].subjects.isEmpty());
    const RunReport run = m_runner->RunAllRules();
    EXPECT_EQ(run.rules.at(1).moved, 0);
    EXPECT_EQ(Subjects("Archive"), QStringList{"done"});
}

INSTANTIATE_TEST_SUITE_P(Backends, PreviewTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Maildir" : "Memory"; });

}  // namespace
