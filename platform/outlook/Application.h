#pragma once
// The host application as add-ins see it. Its events are Qt signals on the
// UI thread: NewMail when mail arrives in the INBOX of any store, ItemSend
// when a message is appended to a store's Sent folder, Startup after the
// host has opened its first window (headless: its windowless Explorer),
// Quit before it closes, OptionsPagesAdd when the Options dialog opens.

#include "NameSpace.h"
#include "Windows.h"

#include <QObject>
#include <QString>

namespace mv::outlook {

// The Options dialog's page list as OptionsPagesAdd hands it over.
class PropertyPages {
public:
    virtual ~PropertyPages() = default;
    // `progIdOrPage` names the page's control by ProgID; `caption` is its tab.
    virtual void Add(const QString& progIdOrPage, const QString& caption) = 0;
};

class Application : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Only "MAPI" is known; nullptr for anything else.
    virtual NameSpace* GetNamespace(const QString& type) = 0;
    virtual Explorers* GetExplorers() = 0;
    virtual Inspectors* GetInspectors() = 0;
    virtual Explorer* ActiveExplorer() = 0;  // nullptr when the host has no Explorer
    virtual QString Version() const = 0;     // the object-model level: "11.0"

Q_SIGNALS:
    void NewMail();
    void ItemSend(mv::outlook::Item* item, bool& cancel);
    void Startup();
    void Quit();
    void OptionsPagesAdd(mv::outlook::PropertyPages* pages);
};

// The add-in connection interface the host calls. RemoveMode 1 means the
// user removed the add-in in the host's add-ins dialog.
class IDTExtensibility2 {
public:
    virtual ~IDTExtensibility2() = default;
    struct AddInInstance {
        QString ProgId;
        IDTExtensibility2* Object = nullptr;
    };
    virtual void OnConnection(Application* application, int connectMode, AddInInstance& addInInst) = 0;
    virtual void OnDisconnection(int removeMode) = 0;
    virtual void OnAddInsUpdate() {}
    virtual void OnStartupComplete() {}
    virtual void OnBeginShutdown() {}
};

enum ext_DisconnectMode : int { ext_dm_HostShutdown = 0, ext_dm_UserClosed = 1 };
enum ext_ConnectMode : int { ext_cm_AfterStartup = 0, ext_cm_Startup = 1 };

}  // namespace mv::outlook
