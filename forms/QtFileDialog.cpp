#include "QtFileDialog.h"

#include <QDir>
#include <QFileDialog>

namespace mv::forms {

QString QtFileDialog::NameFilter(const QString& name, const QString& pattern)
{
    if (pattern.isEmpty()) return name;
    const QString bracketed = QLatin1Char('(') + pattern + QLatin1Char(')');
    if (name.trimmed().endsWith(bracketed)) return name.trimmed();
    return name + QLatin1Char(' ') + bracketed;
}

QString QtFileDialog::Ask(const os::FileDialogRequest& request)
{
    const bool save = request.kind == os::FileDialogRequest::Kind::Save;
    QFileDialog dialog(m_parent, request.title, request.initialDir);
    dialog.setAcceptMode(save ? QFileDialog::AcceptSave : QFileDialog::AcceptOpen);
    dialog.setFileMode(save ? QFileDialog::AnyFile : QFileDialog::ExistingFile);
    dialog.setNameFilter(NameFilter(request.filterName, request.pattern));
    if (!request.defaultExtension.isEmpty()) dialog.setDefaultSuffix(request.defaultExtension);
    if (save && !request.promptOverwrite) dialog.setOption(QFileDialog::DontConfirmOverwrite);
    if (!request.initialName.isEmpty()) dialog.selectFile(request.initialName);
    if (dialog.exec() != QDialog::Accepted) return {};
    const QStringList chosen = dialog.selectedFiles();
    return chosen.isEmpty() ? QString() : QDir::toNativeSeparators(chosen.front());
}

}  // namespace mv::forms
