#include "QtClipboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

namespace mv::host::desktop {

QtClipboard::Snapshot QtClipboard::Save() const
{
    Snapshot snapshot;
    if (const QMimeData* data = QGuiApplication::clipboard()->mimeData())
        for (const QString& format : data->formats())
            snapshot.formats.emplace_back(format, data->data(format));
    return snapshot;
}

void QtClipboard::Restore(const Snapshot& snapshot)
{
    if (snapshot.formats.empty()) {
        QGuiApplication::clipboard()->clear();
        return;
    }
    auto* data = new QMimeData;
    for (const auto& [format, bytes] : snapshot.formats) data->setData(format, bytes);
    QGuiApplication::clipboard()->setMimeData(data);
}

void QtClipboard::SetData(const QString& format, const QByteArray& data)
{
    // Adds to what is there: the face and its mask travel together.
    Snapshot snapshot = Save();
    bool replaced = false;
    for (auto& [name, bytes] : snapshot.formats) {
        if (name != format) continue;
        bytes = data;
        replaced = true;
    }
    if (!replaced) snapshot.formats.emplace_back(format, data);
    Restore(snapshot);
}

void QtClipboard::Clear()
{
    QGuiApplication::clipboard()->clear();
}

QByteArray QtClipboard::Data(const QString& format) const
{
    const QMimeData* data = QGuiApplication::clipboard()->mimeData();
    return data ? data->data(format) : QByteArray();
}

}  // namespace mv::host::desktop
