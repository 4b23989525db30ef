#pragma once
// ADO Command: text with "?" placeholders bound in order from Parameters.

#include "AdoConstants.h"
#include "Parameter.h"

#include <QString>
#include <QVariant>

#include <memory>
#include <vector>

namespace mv::ado {

class Connection;
class Recordset;

class Command {
public:
    Command() = default;

    Connection* ActiveConnection() const { return m_connection; }
    void SetActiveConnection(Connection* connection) { m_connection = connection; }  // nullptr detaches

    int CommandType() const { return m_type; }
    void SetCommandType(int type) { m_type = type; }
    const QString& CommandText() const { return m_text; }
    void SetCommandText(const QString& text) { m_text = text; }

    Parameter CreateParameter(const QString& name = {}, int type = adEmpty, int direction = adParamInput,
                              long size = 0, const QVariant& value = {}) const;
    std::vector<Parameter>& Parameters() { return m_parameters; }
    const std::vector<Parameter>& Parameters() const { return m_parameters; }
    void AppendParameter(Parameter p) { m_parameters.push_back(std::move(p)); }

    // Runs the command. With adExecuteNoRecords returns nullptr; otherwise a
    // Recordset (closed when the statement returns no rows). Throws AdoError:
    // no active connection, a closed one, a placeholder count that differs
    // from the parameter count, or the engine's error.
    std::unique_ptr<Recordset> Execute(int options = adOptionUnspecified);

private:
    Connection* m_connection = nullptr;
    int m_type = adCmdText;
    QString m_text;
    std::vector<Parameter> m_parameters;
};

}  // namespace mv::ado
