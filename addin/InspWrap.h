#pragma once
// One per open Inspector window, keyed by the entry id of the item it
// shows; the engine never moves an item whose id is a key here.

#include <QObject>
#include <QPointer>
#include <QString>

#include "platform/outlook/Windows.h"

namespace mv::addin {

class OutAddIn;

class InspWrap : public QObject {
    Q_OBJECT
public:
    explicit InspWrap(OutAddIn& addIn, QObject* parent = nullptr);

    outlook::Inspector* Inspector() const { return m_objInsp; }
    void SetInspector(outlook::Inspector* inspector);
    const QString& Key() const { return m_key; }
    void SetKey(const QString& key) { m_key = key; }

private:
    void m_objInsp_Close();

    OutAddIn& m_addIn;
    QPointer<outlook::Inspector> m_objInsp;
    QString m_key;
};

}  // namespace mv::addin
