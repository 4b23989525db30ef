#pragma once
// Explorer (folder window) and Inspector (item window) objects with their
// collections. Events are Qt signals delivered on the UI thread, in the
// order the host's windows produce them. The headless host has one
// windowless Explorer and never opens an Inspector.

#include "Folder.h"
#include "Item.h"

#include <QObject>
#include <QPointer>

#include <memory>
#include <vector>

namespace mv::office {
class CommandBars;
}

namespace mv::outlook {

class Explorer : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    virtual office::CommandBars* CommandBars() = 0;
    // The selected items of the message list, in list order.
    virtual std::vector<std::unique_ptr<Item>> Selection() = 0;
    virtual int SelectionCount() = 0;
    virtual std::unique_ptr<Folder> CurrentFolder() = 0;
    virtual void Close() = 0;  // closes the window; Close() is raised

Q_SIGNALS:
    void Activate();
    void Deactivate();
    void BeforeFolderSwitch(mv::outlook::Folder* newFolder, bool& cancel);
    void SelectionChange();
    void Closed();  // the object-model Close event
};

class Inspector : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    virtual Item* CurrentItem() = 0;
    virtual void Close() = 0;

Q_SIGNALS:
    void Closed();
};

class Explorers : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    virtual int Count() const = 0;
    virtual Explorer* Item(int index) const = 0;  // 1-based

Q_SIGNALS:
    void NewExplorer(mv::outlook::Explorer* explorer);
};

class Inspectors : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    virtual int Count() const = 0;
    virtual Inspector* Item(int index) const = 0;  // 1-based

Q_SIGNALS:
    void NewInspector(mv::outlook::Inspector* inspector);
};

}  // namespace mv::outlook
