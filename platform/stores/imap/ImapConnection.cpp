#include "ImapConnection.h"

#include "OAuthSasl.h"
#include "TlsVerifier.h"

#include <libetpan/libetpan.h>

#include <QList>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include <signal.h>

namespace mv::stores {

namespace {

bool StreamFailure(int r)
{
    switch (r) {
    case MAILIMAP_ERROR_STREAM:
    case MAILIMAP_ERROR_PARSE:
    case MAILIMAP_ERROR_CONNECTION_REFUSED:
    case MAILIMAP_ERROR_FATAL:
    case MAILIMAP_ERROR_BAD_STATE:
    case MAILIMAP_ERROR_MEMORY:
    case MAILIMAP_ERROR_SSL:
        return true;
    default:
        return false;
    }
}

QList<QByteArray> CertificateChain(mailstream* stream)
{
    QList<QByteArray> out;
    carray* chain = mailstream_get_certificate_chain(stream);
    if (!chain) return out;
    for (unsigned i = 0; i < carray_count(chain); ++i) {
        auto* der = static_cast<MMAPString*>(carray_get(chain, i));
        out << QByteArray(der->str, static_cast<qsizetype>(der->len));
    }
    mailstream_certificate_chain_free(chain);
    return out;
}

// libetpan's literal parser does not treat end-of-file as an error: a
// connection closed in the middle of a literal spins in read() forever. Each
// stream driver is wrapped once so that EOF reads as an error.
struct EofDriver {
    mailstream_low_driver wrapped;  // first: libetpan sees only this
    mailstream_low_driver* original;
};

ssize_t ReadFailingOnEof(mailstream_low* s, void* buf, size_t count)
{
    auto* driver = reinterpret_cast<EofDriver*>(s->driver);
    const ssize_t n = driver->original->mailstream_read(s, buf, count);
    return n == 0 ? -1 : n;
}

void FailOnEof(mailstream* stream)
{
    static std::mutex mutex;
    static std::map<mailstream_low_driver*, std::unique_ptr<EofDriver>> drivers;
    if (!stream || !stream->low || !stream->low->driver) return;
    std::lock_guard lock(mutex);
    mailstream_low_driver* original = stream->low->driver;
    if (original->mailstream_read == &ReadFailingOnEof) return;
    auto& wrapped = drivers[original];
    if (!wrapped) {
        wrapped = std::make_unique<EofDriver>(EofDriver{*original, original});
        wrapped->wrapped.mailstream_read = &ReadFailingOnEof;
    }
    stream->low->driver = &wrapped->wrapped;
}

// libetpan writes to its sockets with plain write(): a server that hung up
// would kill the whole program with SIGPIPE on the next command. Ignore the
// signal (unless the program set a handler of its own) so that the write
// fails with EPIPE and becomes a dropped connection.
void IgnoreSigpipe()
{
    static std::once_flag once;
    std::call_once(once, [] {
        struct sigaction current {};
        if (::sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) ::signal(SIGPIPE, SIG_IGN);
    });
}

}  // namespace

ImapConnection::~ImapConnection()
{
    if (!m_session) return;
    if (!m_broken && m_session->imap_stream) mailimap_logout(m_session);
    mailimap_free(m_session);
}

bool ImapConnection::Has(const char* capability) const
{
    return m_session && mailimap_has_extension(m_session, capability);
}

Status ImapConnection::Check(int r, const char* what)
{
    if (r == MAILIMAP_NO_ERROR || r == MAILIMAP_NO_ERROR_AUTHENTICATED || r == MAILIMAP_NO_ERROR_NON_AUTHENTICATED)
        return Status::success();
    if (StreamFailure(r)) {
        m_broken = true;
        m_selected.clear();
        return Error::temporary(QStringLiteral("IMAP connection lost during %1 (libetpan error %2)").arg(QLatin1String(what)).arg(r), r);
    }
    const QString server = m_session && m_session->imap_response ? QString::fromUtf8(m_session->imap_response) : QString();
    return Error::permanent(QStringLiteral("IMAP server refused %1: %2").arg(QLatin1String(what), server), r);
}

Status ImapConnection::Login(const ImapSettings& settings, const QString& password)
{
    if (!m_session->imap_connection_info || !m_session->imap_connection_info->imap_capability) {
        mailimap_capability_data* caps = nullptr;
        ++m_commands;
        if (Status s = Check(mailimap_capability(m_session, &caps), "CAPABILITY"); !s) return s;
        mailimap_capability_data_free(caps);
    }
    if (settings.auth != ImapAuth::Password) {
        if (Status s = AuthenticateOAuth(settings, password); !s) return s;
    } else if (Status s = LoginWithPassword(settings, password); !s) {
        return s;
    }
    // Capabilities change with authentication (MOVE, UIDPLUS, WITHIN ...).
    mailimap_capability_data* caps = nullptr;
    ++m_commands;
    if (Status s = Check(mailimap_capability(m_session, &caps), "CAPABILITY"); !s) return s;
    mailimap_capability_data_free(caps);
    return Status::success();
}

Status ImapConnection::LoginWithPassword(const ImapSettings& settings, const QString& password)
{
    const QByteArray user = settings.user.toUtf8();
    const QByteArray pass = password.toUtf8();
    int r;
    ++m_commands;
    if (settings.preferAuthenticate || Has("LOGINDISABLED"))
        r = mailimap_authenticate(m_session, "PLAIN", settings.host.toUtf8().constData(), nullptr, nullptr,
                                  user.constData(), user.constData(), pass.constData(), nullptr);
    else
        r = mailimap_login(m_session, user.constData(), pass.constData());
    if (r != MAILIMAP_NO_ERROR) {
        if (StreamFailure(r)) return Check(r, "LOGIN");
        const QString server = m_session->imap_response ? QString::fromUtf8(m_session->imap_response) : QString();
        return Error::permanent(QStringLiteral("IMAP login as %1 at %2 refused: %3").arg(settings.user, settings.host, server),
                                kLoginRefused);
    }
    return Status::success();
}

Status ImapConnection::Write(const QByteArray& data)
{
    mailstream* stream = m_session->imap_stream;
    if (mailstream_write(stream, data.constData(), static_cast<size_t>(data.size())) < 0 ||
        mailstream_flush(stream) == -1)
        return Check(MAILIMAP_ERROR_STREAM, "AUTHENTICATE");
    return Status::success();
}

Result<QByteArray> ImapConnection::ReadLine()
{
    const char* line = mailimap_read_line(m_session);
    if (!line) return Check(MAILIMAP_ERROR_STREAM, "AUTHENTICATE").error();
    return QByteArray(line);
}

Status ImapConnection::AuthenticateOAuth(const ImapSettings& settings, const QString& token)
{
    const QByteArray mechanism = OAuthSasl::Mechanism(settings.auth);
    if (!mailimap_has_authentication(m_session, mechanism.constData()))
        return Error::permanent(
            QStringLiteral("IMAP login as %1 at %2 refused: the server does not offer AUTHENTICATE %3")
                .arg(settings.user, settings.host, QString::fromLatin1(mechanism)),
                                kLoginRefused);
    const QByteArray response =
        OAuthSasl::InitialResponse(settings.auth, settings.user, token, settings.host, settings.port).toBase64();
    // The initial response saves a round trip where the server allows it (RFC 4959).
    const bool initial = Has("SASL-IR");
    ++m_commands;
    // Kept out of libetpan's logger: the lines carry the token.
    mailstream_set_privacy(m_session->imap_stream, 0);
    Status sent = Check(mailimap_send_current_tag(m_session), "AUTHENTICATE");
    if (sent) sent = Write("AUTHENTICATE " + mechanism + (initial ? ' ' + response : QByteArray()) + "\r\n");
    Result<QByteArray> line = sent ? ReadLine() : Result<QByteArray>(sent.error());
    if (line && !initial && line->startsWith('+')) {
        sent = Write(response + "\r\n");
        line = sent ? ReadLine() : Result<QByteArray>(sent.error());
    }
    // A challenge now is the server's reason for refusing, which it sends
    // before the tagged NO once the client has answered it.
    std::optional<OAuthSasl::Failure> failure;
    if (line && line->startsWith('+')) {
        failure = OAuthSasl::ReadFailure(line->mid(1));
        sent = Write(OAuthSasl::FailureAnswer(settings.auth).toBase64() + "\r\n");
        line = sent ? ReadLine() : Result<QByteArray>(sent.error());
    }
    mailstream_set_privacy(m_session->imap_stream, 1);
    if (!line) return line.error();

    mailimap_response* answer = nullptr;
    if (Status s = Check(mailimap_parse_response(m_session, &answer), "AUTHENTICATE"); !s) return s;
    const mailimap_response_done* done = answer->rsp_resp_done;
    const bool tagged = done && done->rsp_type == MAILIMAP_RESP_DONE_TYPE_TAGGED && done->rsp_data.rsp_tagged;
    const int state = tagged ? done->rsp_data.rsp_tagged->rsp_cond_state->rsp_type : -1;
    mailimap_response_free(answer);
    if (!tagged) return Check(MAILIMAP_ERROR_STREAM, "AUTHENTICATE");
    if (state == MAILIMAP_RESP_COND_STATE_OK) {
        m_session->imap_state = MAILIMAP_STATE_AUTHENTICATED;
        return Status::success();
    }
    QString reason = m_session->imap_response ? QString::fromUtf8(m_session->imap_response) : QString();
    if (failure && !failure->status.isEmpty()) reason += QStringLiteral(" (status %1)").arg(failure->status);
    const bool renewable = !failure || failure->tokenRejected;
    return Error::permanent(QStringLiteral("IMAP login as %1 at %2 with an OAuth2 token (%3) refused: %4")
                                .arg(settings.user, settings.host, QString::fromLatin1(mechanism), reason),
                            renewable ? kTokenRejected : kLoginRefused);
}

Result<std::unique_ptr<ImapConnection>> ImapConnection::Open(const ImapSettings& settings, const QString& password)
{
    IgnoreSigpipe();
    mailimap* session = mailimap_new(0, nullptr);
    if (!session) return Error::temporary(QStringLiteral("out of memory"));
    std::unique_ptr<ImapConnection> conn(new ImapConnection(session));
    conn->m_broken = true;  // until logged in: no LOGOUT on a half-open session
    mailimap_set_timeout(session, settings.timeoutSeconds);
    const QByteArray host = settings.host.toUtf8();
    int r = settings.tls == TlsMode::Implicit ? mailimap_ssl_connect(session, host.constData(), settings.port)
                                              : mailimap_socket_connect(session, host.constData(), settings.port);
    if (r != MAILIMAP_NO_ERROR_NON_AUTHENTICATED && r != MAILIMAP_NO_ERROR_AUTHENTICATED)
        return Error::temporary(QStringLiteral("cannot connect to IMAP server %1:%2 (libetpan error %3)")
                                    .arg(settings.host).arg(settings.port).arg(r), r);
    if (settings.tls == TlsMode::StartTls) {
        r = mailimap_socket_starttls(session);
        if (r != MAILIMAP_NO_ERROR)
            return Error::permanent(QStringLiteral("IMAP server %1 did not start TLS (libetpan error %2)").arg(settings.host).arg(r), r);
        // Anything learnt before TLS cannot be trusted (RFC 3501 6.2.1).
        if (session->imap_connection_info && session->imap_connection_info->imap_capability) {
            mailimap_capability_data_free(session->imap_connection_info->imap_capability);
            session->imap_connection_info->imap_capability = nullptr;
        }
    }
    if (settings.tls != TlsMode::None) {
        if (Status s = TlsVerifier::Verify(CertificateChain(session->imap_stream), settings.host, settings.pinnedCertificate); !s)
            return s.error();
    }
    FailOnEof(session->imap_stream);
    conn->m_broken = false;
    if (r == MAILIMAP_NO_ERROR_AUTHENTICATED) return conn;  // PREAUTH
    if (Status s = conn->Login(settings, password); !s) {
        conn->m_broken = true;
        return s.error();
    }
    return conn;
}

Result<std::unique_ptr<ImapConnection>> ImapConnection::OpenOnStream(_mailstream* stream, const ImapSettings& settings,
                                                                      const QString& password)
{
    IgnoreSigpipe();
    mailimap* session = mailimap_new(0, nullptr);
    if (!session) {
        mailstream_close(stream);
        return Error::temporary(QStringLiteral("out of memory"));
    }
    std::unique_ptr<ImapConnection> conn(new ImapConnection(session));
    mailimap_set_timeout(session, settings.timeoutSeconds);
    FailOnEof(stream);
    const int r = mailimap_connect(session, stream);
    if (r != MAILIMAP_NO_ERROR_NON_AUTHENTICATED && r != MAILIMAP_NO_ERROR_AUTHENTICATED) {
        conn->m_broken = true;
        return Error::temporary(QStringLiteral("no IMAP greeting (libetpan error %1)").arg(r), r);
    }
    if (r == MAILIMAP_NO_ERROR_AUTHENTICATED) return conn;
    if (Status s = conn->Login(settings, password); !s) {
        conn->m_broken = true;
        return s.error();
    }
    return conn;
}

Result<quint32> ImapConnection::Select(const QByteArray& mailbox)
{
    if (m_selected == mailbox && m_session->imap_selection_info) return m_session->imap_selection_info->sel_uidvalidity;
    m_selected.clear();
    ++m_commands;
    const int r = mailimap_select(m_session, mailbox.constData());
    if (r != MAILIMAP_NO_ERROR) {
        Status s = Check(r, "SELECT");
        if (s.error().kind == ErrorKind::Permanent)
            return Error::notFound(QStringLiteral("IMAP folder %1 does not exist: %2").arg(QString::fromUtf8(mailbox), s.error().message), r);
        return s.error();
    }
    m_selected = mailbox;
    m_selectedAt = m_commands;
    return m_session->imap_selection_info->sel_uidvalidity;
}

Status ImapConnection::Sync()
{
    if (m_selectedAt == m_commands) return {};
    ++m_commands;
    return Check(mailimap_noop(m_session), "NOOP");
}

quint32 ImapConnection::Exists() const
{
    return m_session->imap_selection_info ? m_session->imap_selection_info->sel_exists : 0;
}

Result<ImapConnection::ModState> ImapConnection::ReadModState(const QByteArray& mailbox)
{
    mailimap_status_att_list* atts = mailimap_status_att_list_new_empty();
    mailimap_status_att_list_add(atts, MAILIMAP_STATUS_ATT_MESSAGES);
    mailimap_status_att_list_add(atts, MAILIMAP_STATUS_ATT_HIGHESTMODSEQ);
    mailimap_mailbox_data_status* status = nullptr;
    ++m_commands;
    const int r = mailimap_status(m_session, mailbox.constData(), atts, &status);
    mailimap_status_att_list_free(atts);
    if (Status s = Check(r, "STATUS"); !s) return s.error();
    ModState state;
    for (clistiter* it = clist_begin(status->st_info_list); it; it = clist_next(it)) {
        auto* info = static_cast<mailimap_status_info*>(clist_content(it));
        const mailimap_extension_data* ext = info->st_ext_data;
        if (ext && ext->ext_extension == &mailimap_extension_condstore &&
            ext->ext_type == MAILIMAP_CONDSTORE_TYPE_STATUS_INFO && ext->ext_data)
            state.highestModSeq = static_cast<mailimap_condstore_status_info*>(ext->ext_data)->cs_highestmodseq_value;
        else if (info->st_att == MAILIMAP_STATUS_ATT_HIGHESTMODSEQ)
            state.highestModSeq = info->st_value;
        else if (info->st_att == MAILIMAP_STATUS_ATT_MESSAGES)
            state.messages = info->st_value;
    }
    mailimap_mailbox_data_status_free(status);
    return state;
}

Status ImapConnection::Custom(const QByteArray& command)
{
    ++m_commands;
    return Check(mailimap_custom_command(m_session, command.constData()), command.left(command.indexOf(' ', 4)).constData());
}

std::vector<quint32> ImapConnection::SearchResult() const
{
    std::vector<quint32> uids;
    if (!m_session->imap_response_info || !m_session->imap_response_info->rsp_search_result) return uids;
    for (clistiter* it = clist_begin(m_session->imap_response_info->rsp_search_result); it; it = clist_next(it))
        uids.push_back(*static_cast<uint32_t*>(clist_content(it)));
    return uids;
}

Result<std::vector<quint32>> ImapConnection::AllUids()
{
    if (Status s = Custom("UID SEARCH ALL"); !s) return s.error();
    std::vector<quint32> uids = SearchResult();
    std::sort(uids.begin(), uids.end());
    return uids;
}

Result<bool> ImapConnection::EnableQresync()
{
    if (m_qresync || m_qresyncRefused) return m_qresync;
    if (!Has("QRESYNC") || !Has("ENABLE")) return false;
    if (Status s = Custom("ENABLE QRESYNC"); !s) {
        if (m_broken) return s.error();
        m_qresyncRefused = true;  // a NO or BAD: do without
        return false;
    }
    m_qresync = true;
    return true;
}

std::vector<quint32> ImapConnection::Vanished() const
{
    std::vector<quint32> uids;
    if (!m_session->imap_response_info || !m_session->imap_response_info->rsp_extension_list) return uids;
    for (clistiter* it = clist_begin(m_session->imap_response_info->rsp_extension_list); it; it = clist_next(it)) {
        auto* ext = static_cast<mailimap_extension_data*>(clist_content(it));
        if (ext->ext_extension->ext_id != MAILIMAP_EXTENSION_QRESYNC || ext->ext_type != MAILIMAP_QRESYNC_TYPE_VANISHED)
            continue;
        auto* vanished = static_cast<mailimap_qresync_vanished*>(ext->ext_data);
        if (!vanished->qr_known_uids) continue;
        for (clistiter* s = clist_begin(vanished->qr_known_uids->set_list); s; s = clist_next(s)) {
            auto* item = static_cast<mailimap_set_item*>(clist_content(s));
            const quint32 last = item->set_last ? item->set_last : item->set_first;
            for (quint64 uid = item->set_first; uid && uid <= last; ++uid) uids.push_back(static_cast<quint32>(uid));
        }
    }
    return uids;
}

}  // namespace mv::stores
