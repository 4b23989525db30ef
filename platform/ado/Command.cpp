#include "Command.h"

#include "Connection.h"
#include "Recordset.h"

namespace mv::ado {

Parameter Command::CreateParameter(const QString& name, int type, int direction, long size, const QVariant& value) const
{
    return Parameter{name, type, direction, size, value};
}

std::unique_ptr<Recordset> Command::Execute(int options)
{
    if (!m_connection || m_connection->State() != adStateOpen)
        throw AdoError(kErrInvalidConnection, kProviderSource,
                       QStringLiteral("The connection cannot be used to perform this operation. "
                                      "It is either closed or invalid in this context."));
    switch (m_type) {
    case adCmdTable:
        return m_connection->Execute(QStringLiteral("SELECT * FROM [%1]").arg(m_text), m_parameters, options);
    case adCmdText:
    case adCmdUnspecified:
    case adCmdUnknown:
        return m_connection->Execute(m_text, m_parameters, options);
    default:
        throw AdoError(kErrInvalidArgument, kProviderSource,
                       QStringLiteral("Command type %1 is not supported; use text (1).").arg(m_type));
    }
}

}  // namespace mv::ado
