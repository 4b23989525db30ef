#include "FolderUseByName.h"

namespace mv::stores {

namespace {

struct NamedUse {
    const char* name;
    const char* use;
};
const NamedUse kNamedUses[] = {
    {"Sent", "\\Sent"},       {"Sent Items", "\\Sent"},       {"Sent Messages", "\\Sent"},
    {"Drafts", "\\Drafts"},   {"Trash", "\\Trash"},           {"Deleted Items", "\\Trash"},
    {"Deleted Messages", "\\Trash"}, {"Archive", "\\Archive"}, {"Archives", "\\Archive"},
    {"Junk", "\\Junk"},       {"Spam", "\\Junk"},             {"Junk E-mail", "\\Junk"},
};

}  // namespace

QString FolderUseByName::UseOf(const QString& name)
{
    for (const NamedUse& n : kNamedUses)
        if (name.compare(QLatin1String(n.name), Qt::CaseInsensitive) == 0) return QString::fromLatin1(n.use);
    return {};
}

}  // namespace mv::stores
