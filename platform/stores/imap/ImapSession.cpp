#include "ImapSession.h"

#include "platform/stores/common/ModifiedUtf7.h"

#include <libetpan/libetpan.h>

namespace mv::stores {

ImapSession::ImapSession(ImapSettings settings, Connector connector)
    : m_settings(std::move(settings)),
      m_reconnect(QStringLiteral("IMAP %1@%2").arg(m_settings.user, m_settings.host), m_settings.reconnectClock),
      m_connector(std::move(connector)), m_credentials(std::make_shared<ImapCredentials>(m_settings))
{
}

void ImapSession::SetLogger(logging::Logger* log)
{
    m_log = log;
    m_reconnect.SetLogger(log);
}

QString ImapSession::DisplayName() const { return QStringLiteral("%1@%2").arg(m_settings.user, m_settings.host); }

Result<ImapConnection*> ImapSession::Connection()
{
    if (m_conn && !m_conn->broken()) return m_conn.get();
    if (m_conn) {
        m_commandsDone += m_conn->commandsSent();
        m_conn.reset();
    }
    // A server that failed is left alone for a while, and after a refused
    // login for good: every call fails at once meanwhile.
    if (Status s = m_reconnect.MayTry(); !s) return s.error();
    auto opened = m_credentials->Open([this](const QString& secret) { return m_connector(m_settings, secret); });
    if (!opened) return m_reconnect.Failed(opened.error());
    m_reconnect.Succeeded();
    m_conn = std::move(*opened);
    ++m_generation;  // folders may have come and gone while disconnected
    return m_conn.get();
}

Result<std::map<int, quint32>> ImapSession::StatusOf(ImapConnection& conn, const QByteArray& mailbox,
                                                      std::initializer_list<int> items)
{
    mailimap_status_att_list* atts = mailimap_status_att_list_new_empty();
    for (int item : items) mailimap_status_att_list_add(atts, item);
    mailimap_mailbox_data_status* status = nullptr;
    conn.CountCommand();
    const int r = mailimap_status(conn.session(), mailbox.constData(), atts, &status);
    mailimap_status_att_list_free(atts);
    if (Status s = conn.Check(r, "STATUS"); !s) {
        if (s.error().kind == ErrorKind::Permanent)
            return Error::notFound(QStringLiteral("IMAP folder %1 does not exist").arg(ModifiedUtf7::Decode(mailbox)));
        return s.error();
    }
    std::map<int, quint32> values;
    for (clistiter* it = clist_begin(status->st_info_list); it; it = clist_next(it)) {
        auto* info = static_cast<mailimap_status_info*>(clist_content(it));
        values[info->st_att] = info->st_value;
    }
    mailimap_mailbox_data_status_free(status);
    return values;
}

Result<quint32> ImapSession::UidValidity(ImapConnection& conn, const QByteArray& mailbox)
{
    auto values = StatusOf(conn, mailbox, {MAILIMAP_STATUS_ATT_UIDVALIDITY});
    if (!values) return values.error();
    return (*values)[MAILIMAP_STATUS_ATT_UIDVALIDITY];
}

Result<quint32> ImapSession::UidNextChecked(ImapConnection& conn, const ImapFolderRef& folder)
{
    auto values = StatusOf(conn, folder.mailbox, {MAILIMAP_STATUS_ATT_UIDVALIDITY, MAILIMAP_STATUS_ATT_UIDNEXT});
    if (!values) return values.error();
    if ((*values)[MAILIMAP_STATUS_ATT_UIDVALIDITY] != folder.uidValidity)
        return Error::notFound(QStringLiteral("IMAP folder %1 was recreated").arg(ModifiedUtf7::Decode(folder.mailbox)));
    return (*values)[MAILIMAP_STATUS_ATT_UIDNEXT];
}

Result<quint32> ImapSession::SelectChecked(ImapConnection& conn, const ImapFolderRef& folder)
{
    auto uv = conn.Select(folder.mailbox);
    if (!uv) return uv;
    if (*uv != folder.uidValidity)
        return Error::notFound(QStringLiteral("IMAP folder %1 was recreated (UIDVALIDITY %2, was %3)")
                                   .arg(ModifiedUtf7::Decode(folder.mailbox))
                                   .arg(*uv)
                                   .arg(folder.uidValidity));
    return uv;
}

QString ImapSession::OwnAddress() const
{
    if (!m_settings.ownAddress.isEmpty()) return m_settings.ownAddress;
    return m_settings.user.contains(QLatin1Char('@')) ? m_settings.user : m_settings.user + QLatin1Char('@') + m_settings.host;
}

QDateTime ImapSession::Now() const
{
    return m_settings.clock ? m_settings.clock().toUTC() : QDateTime::currentDateTimeUtc();
}

}  // namespace mv::stores
