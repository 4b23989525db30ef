#pragma once
// Shared set-up of the rule store tests: real database files copied from the
// built template and older releases into a temporary folder, the real ADO objects
// behind the ProgID registry, and a scripted message box that records every
// report. Checks read the files through SQLite itself, not through the code
// under test.

#include "store/AdoProgIds.h"
#include "store/cDB.h"

#include "platform/common/ProgIdRegistry.h"
#include "platform/os/ErrorReport.h"
#include "platform/os/MessageBox.h"
#include "tests/support/QtPrinters.h"
#include "tests/support/databases/OldDatabases.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariant>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace mv::test {

// Rows of `sql` run by SQLite on `path`: columns joined by "|", rows by
// "\n", a null written as "NULL".
QString Query(const QString& path, const QString& sql);
// "name type, name type, ..." in table order.
QString Columns(const QString& path, const QString& table);
QByteArray FileBytes(const QString& path);
// Writes `bytes` as the whole of `path`; fails the test when it cannot.
void WriteBytes(const QString& path, const QByteArray& bytes);

class StoreTest : public ::testing::Test {
protected:
    StoreTest();

    // Copies a built database into the temporary folder as `fileName`.
    QString CopyDatabase(const QString& name, const QString& fileName = QStringLiteral("mv.mdb"));
    // A cDB opened on `path` with kind 4; fails the test when it does not open.
    std::unique_ptr<store::cDB> Open(const QString& path);
    QString TempPath(const QString& fileName) const { return m_dir.filePath(fileName); }
    QStringList Reports() const { return m_answerer.texts(); }

    QTemporaryDir m_dir;
    os::ScriptedAnswerer m_answerer;
    os::ErrorReport m_report{m_answerer};
    ProgIdRegistry m_progIds;
};

// A prepared command: one parameter per value, integers as type 3 size 10,
// text as type 202 of its length + 1, a null as type 202 size 1.
std::unique_ptr<ado::Command> Prepared(const QString& sql, const std::vector<QVariant>& values);

}  // namespace mv::test
