#pragma once
// One per open Explorer window: holds the window so its events reach the
// add-in, removes itself from the add-in's collection when the window
// closes, and takes the add-in down when that was the last window.

#include <QObject>
#include <QPointer>

#include <cstdint>

#include "platform/outlook/Windows.h"

namespace mv::office {
class CommandBars;
}

namespace mv::addin {

class OutAddIn;

class ExplWrap : public QObject {
    Q_OBJECT
public:
    explicit ExplWrap(OutAddIn& addIn, QObject* parent = nullptr);

    outlook::Explorer* Explorer() const { return m_objExpl; }
    void SetExplorer(outlook::Explorer* explorer);
    std::int16_t Key() const { return m_key; }
    void SetKey(std::int16_t key) { m_key = key; }
    // How often the per-window command-bar hook ran (it does nothing else).
    int HookCalls() const { return m_hookCalls; }

private:
    void m_objExpl_Activate();
    void m_objExpl_BeforeFolderSwitch(outlook::Folder* newFolder, bool& cancel);
    void m_objExpl_Close();
    void m_objExpl_SelectionChange();
    void CommandBarHook(office::CommandBars* bars);

    OutAddIn& m_addIn;
    QPointer<outlook::Explorer> m_objExpl;
    std::int16_t m_key = 0;
    int m_hookCalls = 0;
};

}  // namespace mv::addin
