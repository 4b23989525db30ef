// The main job: the embedded default store gets generated mail (when its
// INBOX is empty, or on --reseed) and the sample rules (when the rule table
// is empty), then every active rule runs and what moved is printed.
//
// The sample rules file is rowset XML as the export writes it, with
// "@STORE@" and "@FOLDER:<path>@" where identifiers belong: identifiers
// name one store on one machine, so they are filled in here, for the store
// at hand, and the result goes through the add-in's ordinary import.

#include "Commands.h"
#include "ExitCodes.h"
#include "Runtime.h"
#include "core/Profile.h"
#include "core/StoreSet.h"
#include "addin/OutAddIn.h"
#include "engine/RuleRunner.h"
#include "platform/mapi/MapiUtils.h"
#include "platform/os/KnownFolders.h"
#include "platform/corpus/CorpusGenerator.h"
#include "platform/corpus/MaildirWriter.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

namespace mv::host {

namespace {

constexpr std::uint64_t kDemoSeed = 20261122;
constexpr int kDemoMessages = 400;

QString EmbeddedRoot()
{
    return os::DataDir() + QStringLiteral("/Mail");
}

// Files in cur/ and new/ of the folder at `dir` (not of its subfolders).
int CountMessages(const QString& dir)
{
    int n = 0;
    for (const char* sub : {"/cur", "/new"})
        n += static_cast<int>(QDir(dir + QLatin1String(sub)).entryList(QDir::Files).size());
    return n;
}

// Empties every folder of the Maildir++ tree at `root`; messages being
// delivered (tmp/) are left alone.
bool EmptyStore(const QString& root)
{
    QStringList folders{root};
    for (const QString& name : QDir(root).entryList({QStringLiteral(".*")}, QDir::Dirs | QDir::NoDotAndDotDot))
        folders << root + QLatin1Char('/') + name;
    for (const QString& folder : folders)
        for (const char* sub : {"/cur", "/new"}) {
            QDir dir(folder + QLatin1String(sub));
            for (const QString& f : dir.entryList(QDir::Files))
                if (!dir.remove(f)) return false;
        }
    return true;
}

QString SampleRulesPath()
{
    return os::InstallDir() + QStringLiteral("/resources/rules/sample-rules.xml");
}

// The sample file with its placeholders replaced by `store`'s identifiers;
// folders that do not exist are created. Empty with a message on failure.
QByteArray FillPlaceholders(const QByteArray& xml, mapi::MessageStore& store)
{
    QString text = QString::fromUtf8(xml);
    text.replace(QStringLiteral("@STORE@"), mapi::MapiUtils::HrGetHexFromBinary(store.StoreId()));
    static const QRegularExpression kFolder(QStringLiteral("@FOLDER:([^@']+)@"));
    QHash<QString, QString> ids;
    for (auto it = kFolder.globalMatch(text); it.hasNext();) ids.insert(it.next().captured(1), QString());
    // The folder list is read once; what is created here is added to it.
    auto folders = store.Folders();
    if (!folders) {
        Err(folders.error().message);
        return {};
    }
    for (auto it = ids.begin(); it != ids.end(); ++it) {
        QByteArray parent;
        QString path;
        for (const QString& level : it.key().split(QLatin1Char('/'))) {
            path = path.isEmpty() ? level : path + QLatin1Char('/') + level;
            QByteArray found;
            for (const mapi::FolderInfo& f : *folders)
                if (f.path.compare(path, Qt::CaseInsensitive) == 0) found = f.entryId;
            if (found.isEmpty()) {
                auto made = store.CreateFolder(parent, level);
                if (!made) {
                    Err(QStringLiteral("cannot create the folder %1: %2").arg(path, made.error().message));
                    return {};
                }
                found = *made;
                mapi::FolderInfo created;
                created.path = path;
                created.entryId = found;
                folders->push_back(created);
            }
            parent = found;
        }
        it.value() = mapi::MapiUtils::HrGetHexFromBinary(parent);
    }
    for (auto it = ids.cbegin(); it != ids.cend(); ++it)
        text.replace(QStringLiteral("@FOLDER:%1@").arg(it.key()), it.value());
    return text.toUtf8();
}

bool ImportSampleRules(CommandContext& ctx, mapi::MessageStore& store)
{
    QFile file(SampleRulesPath());
    if (!file.open(QIODevice::ReadOnly)) {
        Err(QStringLiteral("cannot read the sample rules %1").arg(file.fileName()));
        return false;
    }
    const QByteArray filled = FillPlaceholders(file.readAll(), store);
    if (filled.isEmpty()) return false;
    QTemporaryDir tmp;
    const QString path = tmp.filePath(QStringLiteral("sample-rules.xml"));
    QFile out(path);
    if (!tmp.isValid() || !out.open(QIODevice::WriteOnly) || out.write(filled) != filled.size()) {
        Err(QStringLiteral("cannot write a temporary file for the sample rules"));
        return false;
    }
    out.close();
    return ctx.runtime.AddIn().ImportRulesFrom(path);
}

}  // namespace

int PrepareDemo(const QStringList& args)
{
    const bool reseed = args.contains(QStringLiteral("--reseed"));
    if (!args.isEmpty() && !reseed) {
        Err(QStringLiteral("demo: unknown option %1").arg(args.first()));
        return kExitUsage;
    }
    const QString root = EmbeddedRoot();
    if (Status made = CreateDefaultMaildir(root); !made.ok()) {
        Err(made.error().message);
        return kExitStore;
    }
    if (reseed && !EmptyStore(root)) {
        Err(QStringLiteral("cannot empty %1").arg(root));
        return kExitStore;
    }
    if (CountMessages(root) > 0) return kExitOk;
    corpus::CorpusOptions options;
    options.seed = kDemoSeed;
    options.count = kDemoMessages;
    options.withAttachments = false;
    options.profile = corpus::CorpusProfile::Demo;
    if (Status written = corpus::MaildirWriter(root).Write(corpus::CorpusGenerator::Generate(options));
        !written.ok()) {
        Err(written.error().message);
        return kExitStore;
    }
    std::printf("Seeded %d generated messages into %s\n", kDemoMessages, root.toLocal8Bit().constData());
    return kExitOk;
}

int RunDemo(CommandContext& ctx)
{
    const auto stores = ctx.runtime.Stores().Stores();
    if (stores.empty()) return kExitStore;
    addin::OutAddIn& addIn = ctx.runtime.AddIn();
    if (addIn.GetMaxSortID() == 0) {
        if (!ImportSampleRules(ctx, *stores.front())) return kExitRunFailed;
        PrintLine(ctx.out, QStringLiteral("Imported the sample rules from %1").arg(SampleRulesPath()));
    }
    PrintLine(ctx.out, QStringLiteral("Database: %1/mv.mdb").arg(ctx.runtime.DataDir()));
    PrintLine(ctx.out, QStringLiteral("Store: %1").arg(stores.front()->DisplayName()));
    return PrintRunReport(ctx.out, ctx.runtime.Runner().RunAllRules());
}

}  // namespace mv::host
