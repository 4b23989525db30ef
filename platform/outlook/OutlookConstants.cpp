#include "OutlookConstants.h"

namespace mv::outlook {

ItemKind KindOfMessageClass(const QString& messageClass)
{
    // The order is the point: "REPORT.IPM.Note.NDR" holds "IPM.NOTE" too.
    static const struct {
        const char* marker;
        ItemKind kind;
    } kOrder[] = {
        {"IPM.SCHEDULE", ItemKind::Meeting},
        {"REPORT.", ItemKind::Report},
        {"IPM.NOTE", ItemKind::Mail},
    };
    for (const auto& entry : kOrder)
        if (messageClass.contains(QLatin1String(entry.marker), Qt::CaseInsensitive)) return entry.kind;
    return ItemKind::Other;
}

}  // namespace mv::outlook
