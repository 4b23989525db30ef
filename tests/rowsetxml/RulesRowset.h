#pragma once
// The rule table's rowset as the database provider hands it over for
// "Select * from Rules", with the rows that data/rules_ado.xml holds.

#include "platform/ado/RowsetData.h"

#include <QByteArray>

namespace mv::ado::test {

RowsetData RulesRowset();
QByteArray GoldenRulesFile();

}  // namespace mv::ado::test
