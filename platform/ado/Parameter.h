#pragma once

#include "AdoConstants.h"

#include <QString>
#include <QVariant>

namespace mv::ado {

// One "?" value of a prepared Command. Type and size are kept as given; the
// value is bound by its own type (integers as integers, text as text).
struct Parameter {
    QString Name;
    int Type = adEmpty;
    int Direction = adParamInput;
    long Size = 0;
    QVariant Value;
};

}  // namespace mv::ado
