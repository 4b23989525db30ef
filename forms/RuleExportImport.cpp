#include "RuleExportImport.h"

#include "addin/OutAddIn.h"

#include <QDir>
#include <QFileInfo>

namespace mv::forms {

os::FileDialogRequest RuleExportImport::ExportRequest(const QString& installDir)
{
    os::FileDialogRequest r;
    r.kind = os::FileDialogRequest::Kind::Save;
    r.title = QStringLiteral("Export Rules");
    r.filterName = QStringLiteral("XML Files");
    r.pattern = QStringLiteral("*.xml");
    r.initialName = QStringLiteral("Untitled.xml");
    r.defaultExtension = QStringLiteral("xml");
    r.promptOverwrite = true;
    // An installed program's folder is usually not the user's to write in;
    // offering it would only lead to a failed export.
    const QFileInfo dir(installDir);
    r.initialDir = !installDir.isEmpty() && dir.isDir() && dir.isWritable() ? installDir : QDir::homePath();
    return r;
}

os::FileDialogRequest RuleExportImport::ImportRequest()
{
    os::FileDialogRequest r;
    r.kind = os::FileDialogRequest::Kind::Open;
    r.title = QStringLiteral("Choose File to Import");
    r.filterName = QStringLiteral("XML Files (*.xml)");
    r.pattern = QStringLiteral("*.xml");
    return r;
}

bool RuleExportImport::ExportRules()
{
    const QString path = m_files.Ask(ExportRequest(m_addIn.InstallDir()));
    if (path.trimmed().isEmpty()) return false;
    return m_addIn.ExportRulesTo(path);
}

bool RuleExportImport::ImportRules()
{
    const QString path = m_files.Ask(ImportRequest());
    if (path.trimmed().isEmpty()) return false;
    return m_addIn.ImportRulesFrom(path);
}

}  // namespace mv::forms
