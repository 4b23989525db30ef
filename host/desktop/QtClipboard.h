#pragma once
// The clipboard seam over the desktop's QClipboard: formats by MIME name,
// a snapshot of every format for the toolbar builder to put back.

#include "platform/os/Clipboard.h"

namespace mv::host::desktop {

class QtClipboard final : public os::Clipboard {
public:
    Snapshot Save() const override;
    void Restore(const Snapshot& snapshot) override;
    void SetData(const QString& format, const QByteArray& data) override;
    void Clear() override;
    QByteArray Data(const QString& format) const override;
};

}  // namespace mv::host::desktop
