// Maildir store benchmark: a generated corpus in one folder, then the cold
// index, the warm run of twenty typical rules, a body rule and peak memory.
//
//   bench_maildir [--count N] [--keep DIR]
//   bench_maildir --phase moves [--count N]   (an engine run moving N messages)
//   bench_maildir --keep DIR --phase rules     (the warm rules alone, on a kept corpus and index)
//   bench_maildir --keep DIR --phase again     (a new process running the rules once, timed whole)
//   --rules everyday                            (EverydayRules instead of TypicalRules, any phase)

#include "bench/common/EverydayRules.h"
#include "bench/common/TypicalRules.h"
#include "engine/RuleExecutor.h"
#include "engine/RuleRestriction.h"
#include "platform/common/ProgIdRegistry.h"
#include "platform/mapi/MapiUtils.h"
#include "platform/os/Clock.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "platform/os/TimeZone.h"
#include "platform/outlook/SafeLib.h"
#include "platform/outlook/store/StoreNameSpace.h"
#include "platform/stores/common/FlagMapping.h"
#include "platform/stores/maildir/MaildirIds.h"
#include "platform/stores/maildir/MaildirKeywords.h"
#include "platform/stores/maildir/MaildirStore.h"
#include "platform/corpus/CorpusGenerator.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>
#include <ctime>

#include <dirent.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

using namespace mv;
using namespace mv::stores::maildir;

namespace {

double CpuMs()
{
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

long PeakRssMb()
{
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_maxrss / 1024;
}

// Writes the corpus straight into cur/ (no fsync per file: this is set-up,
// not the store's delivery path), in batches so the generator's memory does
// not count in the peak.
bool Generate(const QString& root, int count)
{
    for (const char* sub : {"cur", "new", "tmp"}) QDir().mkpath(root + '/' + sub);
    QStringList keywords;
    constexpr int kBatch = 5000;
    for (int done = 0, batch = 0; done < count; ++batch) {
        corpus::CorpusOptions options;
        options.seed = quint64(batch + 1);
        options.count = std::min(kBatch, count - done);
        options.withAttachments = true;
        const auto messages = corpus::CorpusGenerator::Generate(options);
        for (size_t i = 0; i < messages.size(); ++i) {
            const auto& m = messages[i].message;
            const qint64 secs = m.internalDate.toSecsSinceEpoch();
            const QString name = QStringLiteral("%1.B%2S%3.bench:2,%4")
                                     .arg(secs).arg(batch).arg(i)
                                     .arg(stores::FlagMapping::ToMaildirInfo(m.flags, keywords));
            const QString path = root + QStringLiteral("/cur/") + name;
            QFile f(path);
            if (!f.open(QIODevice::WriteOnly) || f.write(m.rfc822) != m.rfc822.size()) return false;
            f.close();
            const utimbuf t{secs, secs};
            ::utime(QFile::encodeName(path).constData(), &t);
        }
        done += int(messages.size());
    }
    return MaildirKeywords::Save(root, keywords).ok();
}

double ListWithReaddir(const QString& dir, int* n)
{
    QElapsedTimer t;
    t.start();
    *n = 0;
    DIR* d = ::opendir(QFile::encodeName(dir).constData());
    while (dirent* e = ::readdir(d)) {
        struct stat st{};
        if (e->d_name[0] != '.' && ::fstatat(::dirfd(d), e->d_name, &st, 0) == 0) ++*n;
    }
    ::closedir(d);
    return t.nsecsElapsed() / 1e6;
}

double ListWithQDir(const QString& dir, int* n)
{
    QElapsedTimer t;
    t.start();
    const QFileInfoList list = QDir(dir).entryInfoList(QDir::Files);
    qint64 bytes = 0;
    for (const QFileInfo& fi : list) bytes += fi.size() + fi.lastModified().toSecsSinceEpoch();
    *n = int(list.size()) + int(bytes & 0);
    return t.nsecsElapsed() / 1e6;
}

using mv::bench::kEngineColumns;
using mv::bench::Rule;
using mv::bench::TypicalRules;

bool g_everyday = false;

std::vector<Rule> BenchRules()
{
    return g_everyday ? mv::bench::EverydayRules() : TypicalRules();
}

// Wall time and CPU time: the machine is shared, so wall time alone
// overstates what the store costs on an idle one.
struct Timed {
    double ms;
    double cpuMs;
    size_t rows;
};

Timed RunRule(MaildirStore& store, const Rule& rule, const QDateTime& now)
{
    mapi::Restriction root(mapi::RES_AND);
    std::optional<QDateTime> cutOff;
    if (rule.ageDays) cutOff = now.addDays(-*rule.ageDays);
    engine::AddRuleCriteria(rule.record, cutOff, root);
    QElapsedTimer t;
    t.start();
    const double cpu0 = CpuMs();
    auto rows = store.Query(FolderIdFor(""), &root, kEngineColumns);
    const double ms = t.nsecsElapsed() / 1e6;
    const double cpuMs = CpuMs() - cpu0;
    if (!rows) {
        std::fprintf(stderr, "query failed: %s\n", qPrintable(rows.error().message));
        std::exit(1);
    }
    return {ms, cpuMs, rows->size()};
}

long ResidentMb()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly)) return -1;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields[1].toLong() * (sysconf(_SC_PAGESIZE) / 1024) / 1024 : -1;
}

void ColdPhase(const QString& root, const MaildirStoreOptions& options)
{
    MaildirStore store(root, options);
    QElapsedTimer t;
    t.start();
    const double cpu0 = CpuMs();
    auto rows = store.Query(FolderIdFor(""), nullptr, kEngineColumns);
    std::printf("cold index: %zu rows, %d parsed, %.1f s wall (cpu %.1f s)\n", rows ? rows->size() : 0,
                store.lastScan().parsed, t.nsecsElapsed() / 1e9, (CpuMs() - cpu0) / 1e3);
    std::printf("cold index process: peak %ld MB, resident at end %ld MB\n", PeakRssMb(), ResidentMb());
}

void WarmPhase(const QString& root, const MaildirStoreOptions& options, bool withBodies)
{
    const QDateTime now = corpus::CorpusOptions().now;
    MaildirStore store(root, options);
    QElapsedTimer t;
    t.start();
    const double cpu1 = CpuMs();
    (void)store.Query(FolderIdFor(""), nullptr, {mapi::PR_ENTRYID});
    std::printf("first query of a new process (index read from disk): %.0f ms wall (cpu %.0f ms), %d parsed\n",
                t.nsecsElapsed() / 1e6, CpuMs() - cpu1, store.lastScan().parsed);

    const auto rules = BenchRules();
    for (int pass = 0; pass < 2; ++pass) {
        double total = 0, cpu = 0;
        for (const Rule& rule : rules) {
            const Timed r = RunRule(store, rule, now);
            total += r.ms;
            cpu += r.cpuMs;
            if (pass == 1) std::printf("  %-34s %7zu rows %7.1f ms (cpu %7.1f ms)\n", rule.name, r.rows, r.ms, r.cpuMs);
        }
        std::printf("warm run of %zu rules, pass %d: %.0f ms wall (cpu %.0f ms)\n", rules.size(), pass + 1, total, cpu);
    }
    std::printf("after warm runs: peak %ld MB, resident %ld MB\n", PeakRssMb(), ResidentMb());
    if (!withBodies) return;
    Rule bodyAndSubject{"body + subject", {}, {}};
    bodyAndSubject.record.message = QStringLiteral("invoice");
    bodyAndSubject.record.subject = corpus::CorpusGenerator::SampleSubjectWords().value(0);
    Timed b = RunRule(store, bodyAndSubject, now);
    std::printf("body + subject rule: %zu rows, %d bodies read, %.0f ms wall (cpu %.0f ms)\n", b.rows,
                store.lastBodyReads(), b.ms, b.cpuMs);
    Rule body{"body term", {}, {}};
    body.record.message = QStringLiteral("invoice");
    b = RunRule(store, body, now);
    std::printf("body term rule: %zu rows, %d bodies read, %.1f s wall (cpu %.1f s)\n", b.rows, store.lastBodyReads(),
                b.ms / 1000, b.cpuMs / 1000);
    std::printf("warm process: peak %ld MB, resident at end %ld MB\n", PeakRssMb(), ResidentMb());
}

// What a one-off run with nothing new costs the store: open it, answer
// every rule once, leave. The parent times the whole process.
void AgainPhase(const QString& root, const MaildirStoreOptions& options)
{
    const QDateTime now = corpus::CorpusOptions().now;
    MaildirStore store(root, options);
    size_t rows = 0;
    int bodies = 0;
    for (const Rule& rule : BenchRules()) {
        rows += RunRule(store, rule, now).rows;
        bodies += store.lastBodyReads();
    }
    std::printf("again: %zu rows, %d bodies read, parsed %d, peak %ld MB\n", rows, bodies, store.lastScan().parsed,
                PeakRssMb());
}

// One rule of the engine, no criteria, moving every message of a fresh
// Maildir INBOX of `count` messages to Archive, as a real run does it.
void MovesPhase(const QString& base, int count)
{
    const QString root = base + QStringLiteral("/Moves");
    QDir(root).removeRecursively();
    if (!Generate(root, count)) {
        std::fprintf(stderr, "cannot write the corpus under %s\n", qPrintable(root));
        std::exit(1);
    }
    MaildirStoreOptions options;
    options.indexPath = base + QStringLiteral("/moves-index.sqlite");
    options.watch = false;
    for (const char* suffix : {"", "-wal", "-shm"}) QFile::remove(options.indexPath + suffix);
    MaildirStore store(root, options);
    auto archive = store.CreateFolder({}, QStringLiteral("Archive"));
    if (!archive) std::exit(1);
    (void)store.Query(FolderIdFor(""), nullptr, {mapi::PR_ENTRYID});  // index built: the run is what is timed

    outlook::StoreNameSpace ns(std::vector<mapi::MessageStore*>{&store});
    ProgIdRegistry progIds;
    outlook::RegisterSafeLib(progIds);
    os::ScriptedAnswerer answerer;
    os::ErrorReport report(answerer);
    os::FakeClock clock(corpus::CorpusOptions().now);
    os::FixedTimeZone zone;
    engine::RuleExecutor exec(ns, progIds, report, clock, zone);
    engine::RuleRecord rule;
    rule.ruleName = QStringLiteral("everything");
    rule.srcEntryId = mapi::MapiUtils::HrGetHexFromBinary(FolderIdFor(""));
    rule.dstEntryId = mapi::MapiUtils::HrGetHexFromBinary(*archive);
    rule.srcStoreId = rule.dstStoreId = mapi::MapiUtils::HrGetHexFromBinary(store.StoreId());
    QElapsedTimer t;
    t.start();
    const double cpu0 = CpuMs();
    const engine::RuleOutcome outcome = exec.Execute(rule, false);
    std::printf("engine run moving %d of %d messages: %.0f ms wall (cpu %.0f ms), %d flags cleared%s\n",
                outcome.moved, count, t.nsecsElapsed() / 1e6, CpuMs() - cpu0, outcome.flagsCleared,
                outcome.error.isEmpty() ? "" : qPrintable(QStringLiteral(", error: ") + outcome.error));
}

}  // namespace

// Each phase runs in a process of its own so that its peak memory is its
// own: generating the corpus, building the index from nothing, and the
// warm runs of a process that finds the index on disk.
int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    int count = 100000;
    QString keep, phase;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (qstrcmp(argv[i], "--count") == 0) count = QByteArray(argv[i + 1]).toInt();
        if (qstrcmp(argv[i], "--keep") == 0) keep = QString::fromLocal8Bit(argv[i + 1]);
        if (qstrcmp(argv[i], "--phase") == 0) phase = QString::fromLatin1(argv[i + 1]);
        if (qstrcmp(argv[i], "--rules") == 0) g_everyday = qstrcmp(argv[i + 1], "everyday") == 0;
    }
    QTemporaryDir tmp;
    const QString base = keep.isEmpty() ? tmp.path() : keep;
    const QString root = base + QStringLiteral("/Mail");
    const QString index = base + QStringLiteral("/index.sqlite");
    MaildirStoreOptions options;
    options.indexPath = index;
    options.watch = false;

    // A phase in a process of its own, with the same corpus and rule set.
    auto run = [&](const char* name) {
        std::fflush(stdout);
        QStringList args{QStringLiteral("--count"), QString::number(count), QStringLiteral("--keep"), base,
                         QStringLiteral("--phase"), QLatin1String(name)};
        if (g_everyday) args << QStringLiteral("--rules") << QStringLiteral("everyday");
        return QProcess::execute(QCoreApplication::applicationFilePath(), args);
    };

    if (phase == QLatin1String("generate")) {
        QElapsedTimer t;
        t.start();
        if (!Generate(root, count)) {
            std::fprintf(stderr, "cannot write the corpus under %s\n", qPrintable(root));
            return 1;
        }
        std::printf("generated %d messages in %.1f s\n", count, t.nsecsElapsed() / 1e9);
        return 0;
    }
    if (phase == QLatin1String("cold")) {
        ColdPhase(root, options);
        return 0;
    }
    if (phase == QLatin1String("warm") || phase == QLatin1String("rules")) {
        // "rules": the twenty rules only, for profiling them without the body reads.
        WarmPhase(root, options, phase == QLatin1String("warm"));
        return 0;
    }
    if (phase == QLatin1String("again-child")) {
        AgainPhase(root, options);
        return 0;
    }
    if (phase == QLatin1String("again")) {
        // Three one-off processes in a row: the first may still write what
        // it learnt (body answers); the median of the other two is the figure.
        for (int i = 0; i < 3; ++i) {
            QElapsedTimer t;
            t.start();
            if (run("again-child") != 0) return 1;
            std::printf("one-off process %d: %.0f ms wall\n", i + 1, t.nsecsElapsed() / 1e6);
        }
        return 0;
    }
    if (phase == QLatin1String("moves")) {
        MovesPhase(base, count);
        return 0;
    }

    if ((!QDir(root + "/cur").exists() || QDir(root + "/cur").isEmpty()) && run("generate") != 0) return 1;
    for (const char* suffix : {"", "-wal", "-shm"}) QFile::remove(index + suffix);
    // Directory times must be older than the store's trust margin, as they
    // are in a mailbox that is not being written to.
    const utimbuf old{std::time(nullptr) - 60, std::time(nullptr) - 60};
    for (const char* sub : {"/cur", "/new"}) ::utime(QFile::encodeName(root + sub).constData(), &old);

    int n = 0;
    const double rd = ListWithReaddir(root + "/cur", &n);
    const double qd = ListWithQDir(root + "/cur", &n);
    std::printf("list + stat %d files: readdir/fstatat %.0f ms, QDir::entryInfoList %.0f ms\n", n, rd, qd);
    if (run("cold") != 0 || run("warm") != 0) return 1;
    return 0;
}
