#pragma once
// What a query has to fetch of each candidate: the header fields that the
// re-check and the columns read, and whether the structure is needed to
// tell the message class.
//
// Every field costs the server a look into its cache and this client a
// parse; a rule on the sender needs From, not the eleven fields a whole
// record is made of. A property this class does not know asks for all of
// them, so a new column can never come back silently empty.

#include "platform/mapi/PropTags.h"
#include "platform/mapi/Restriction.h"

#include <QByteArray>
#include <QByteArrayList>

#include <vector>

namespace mv::stores {

class FetchNeeds {
public:
    // `restriction` is what the candidates are re-checked against (null
    // when the search answer is exact).
    static FetchNeeds For(const mapi::Restriction* restriction, const std::vector<mapi::PropTag>& columns);
    // Everything a record is made of.
    static FetchNeeds All();

    // "From Subject Message-ID"; always holds Message-ID (moves find their
    // copies by it after a dropped connection).
    QByteArray FieldList() const { return m_fields.join(' '); }
    const QByteArrayList& fields() const { return m_fields; }
    // The message class is asked for: the Content-Type field is fetched,
    // and the structure of a multipart message that may hold a calendar.
    bool structure() const { return m_structure; }
    // The attachment bit is not asked for: the record can be made from the
    // fetched fields without parsing a message (the class comes from the
    // structure, or from the parser for a report).
    bool light() const { return !m_attachmentBit; }
    // A term reaches the body.
    bool body() const { return m_body; }

    // Whether the class of a message needs its structure, from its fetched
    // header block: a multipart message may hide a calendar part, a
    // calendar without a method parameter names it in its text; reports
    // and single parts are told from the Content-Type field alone.
    static bool MayHoldCalendar(const QByteArray& headerBlock);

private:
    void Add(mapi::PropTag tag);
    void AddFields(std::initializer_list<const char*> names);
    void Walk(const mapi::Restriction& r);

    QByteArrayList m_fields;
    bool m_structure = false;
    bool m_attachmentBit = false;  // PR_MESSAGE_FLAGS: told by the MIME parser
    bool m_body = false;
};

}  // namespace mv::stores
