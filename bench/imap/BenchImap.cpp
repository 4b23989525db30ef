// IMAP store benchmark: a generated corpus in a private Dovecot's INBOX
// (written as Maildir files before the server starts, which is far faster
// than APPEND), then twenty typical rules run as the engine runs them.
// Reports per rule the commands sent, wall time and rows; and peak memory.
//
//   bench_imap [--count N] [--mirror 1]
//
// With --mirror the store keeps a mirror (in a temporary folder), and the
// rules run once more from a new store over it, as a new process would.

#include "bench/common/TypicalRules.h"
#include "engine/RuleRestriction.h"
#include "platform/stores/imap/ImapStore.h"
#include "tests/support/dovecot/DovecotServer.h"
#include "platform/corpus/CorpusGenerator.h"
#include "platform/corpus/MaildirWriter.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QDirIterator>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>
#include <optional>

#include <sys/resource.h>

using namespace mv;

namespace {

long PeakRssMb()
{
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_maxrss / 1024;
}

using mv::bench::kEngineColumns;
using mv::bench::Rule;
using mv::bench::TypicalRules;

struct Timed {
    double ms;
    int commands;
    size_t rows;
};

Timed RunRule(stores::ImapStore& store, const QByteArray& inbox, const Rule& rule, const QDateTime& now)
{
    mapi::Restriction root(mapi::RES_AND);
    std::optional<QDateTime> cutOff;
    if (rule.ageDays) cutOff = now.addDays(-*rule.ageDays);
    engine::AddRuleCriteria(rule.record, cutOff, root);
    const int before = store.CommandsSent();
    QElapsedTimer t;
    t.start();
    auto rows = store.Query(inbox, &root, kEngineColumns);
    const double ms = t.nsecsElapsed() / 1e6;
    if (!rows) {
        std::fprintf(stderr, "query failed: %s\n", qPrintable(rows.error().message));
        std::exit(1);
    }
    return {ms, store.CommandsSent() - before, rows->size()};
}

// Every rule once, in order; `perRule` prints each rule's figures. The
// totals are the sums of the rules' times and commands.
Timed RunRules(stores::ImapStore& store, const QByteArray& inbox, const std::vector<Rule>& rules,
               const QDateTime& now, bool perRule)
{
    Timed total{0, 0, 0};
    for (const Rule& rule : rules) {
        const Timed r = RunRule(store, inbox, rule, now);
        total.ms += r.ms;
        total.commands += r.commands;
        total.rows += r.rows;
        if (perRule) std::printf("  %-34s %7zu rows %4d commands %8.1f ms\n", rule.name, r.rows, r.commands, r.ms);
    }
    return total;
}

// Runs in a process of its own, so that the corpus held in memory does not
// count towards the client's peak.
int Generate(const QString& maildir, int count)
{
    corpus::CorpusOptions options;
    options.count = count;
    QElapsedTimer t;
    t.start();
    const auto messages = corpus::CorpusGenerator::Generate(options);
    corpus::MaildirWriter writer(maildir);
    if (Status s = writer.Write(messages); !s) {
        std::fprintf(stderr, "cannot write the corpus: %s\n", qPrintable(s.error().message));
        return 1;
    }
    std::printf("generated and wrote %d messages in %.1f s\n", count, t.nsecsElapsed() / 1e9);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);  // progress shows while it runs
    int count = 100000;
    QString generateInto;
    bool mirror = false;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (qstrcmp(argv[i], "--count") == 0) count = QByteArray(argv[i + 1]).toInt();
        if (qstrcmp(argv[i], "--generate-into") == 0) generateInto = QString::fromLocal8Bit(argv[i + 1]);
        if (qstrcmp(argv[i], "--mirror") == 0) mirror = qstrcmp(argv[i + 1], "1") == 0;
    }
    if (!generateInto.isEmpty()) return Generate(generateInto, count);

    test::DovecotServer server;
    if (QProcess::execute(QCoreApplication::applicationFilePath(),
                          {QStringLiteral("--count"), QString::number(count), QStringLiteral("--generate-into"), server.MaildirPath()}) != 0)
        return 1;
    QString error;
    if (!server.Start(&error)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    stores::ImapSettings settings;
    settings.host = QStringLiteral("127.0.0.1");
    settings.port = server.Port();
    settings.tls = stores::TlsMode::None;
    settings.user = test::DovecotServer::User();
    settings.password = test::DovecotServer::Password();
    settings.timeoutSeconds = 600;  // the first SELECT indexes the whole folder
    stores::ImapStore store(settings);
    QTemporaryDir mirrorDir;
    if (mirror) store.SetMirrorFolder(mirrorDir.path());

    QElapsedTimer t;
    t.start();
    auto inbox = store.FolderIdOf("INBOX");
    if (!inbox) {
        std::fprintf(stderr, "%s\n", qPrintable(inbox.error().message));
        return 1;
    }
    auto all = store.Query(*inbox, nullptr, {mapi::PR_ENTRYID});
    std::printf("first query (Dovecot indexes the folder): %zu rows, %d commands, %.1f s\n", all ? all->size() : 0,
                store.CommandsSent(), t.nsecsElapsed() / 1e9);
    std::printf("client after first query: peak %ld MB\n", PeakRssMb());

    const QDateTime now = QDateTime::currentDateTimeUtc();
    const auto rules = TypicalRules();
    for (int pass = 0; pass < 2; ++pass) {
        const Timed run = RunRules(store, *inbox, rules, now, true);
        std::printf("run of %zu rules, pass %d: %d commands, %.0f ms\n", rules.size(), pass + 1, run.commands, run.ms);
    }
    if (mirror) {
        qint64 bytes = 0;
        for (QDirIterator it(mirrorDir.path(), QDir::Files); it.hasNext();) bytes += QFileInfo(it.next()).size();
        std::printf("mirror on disk: %lld bytes, %.0f bytes per message\n", static_cast<long long>(bytes),
                    all && !all->empty() ? double(bytes) / double(all->size()) : 0.0);
        std::printf("client before the new process: peak %ld MB\n", PeakRssMb());
        stores::ImapStore again(settings);
        again.SetMirrorFolder(mirrorDir.path());
        const Timed run = RunRules(again, *inbox, rules, now, false);
        std::printf("run of %zu rules from a new process over the mirror: %d commands (login not counted), %.0f ms\n",
                    rules.size(), run.commands, run.ms);
    }
    const Rule body{"body term", bench::RuleWith([](auto& r) { r.message = QStringLiteral("invoice"); }), {}};
    const Timed b = RunRule(store, *inbox, body, now);
    std::printf("body term rule: %zu rows, %d commands, %.0f ms\n", b.rows, b.commands, b.ms);
    std::printf("client: peak %ld MB\n", PeakRssMb());
    return 0;
}
