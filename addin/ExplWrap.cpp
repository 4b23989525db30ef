#include "ExplWrap.h"

#include "OutAddIn.h"

#include "platform/outlook/Application.h"

namespace mv::addin {

ExplWrap::ExplWrap(OutAddIn& addIn, QObject* parent) : QObject(parent), m_addIn(addIn) {}

void ExplWrap::SetExplorer(outlook::Explorer* explorer)
{
    if (m_objExpl) disconnect(m_objExpl, nullptr, this, nullptr);
    m_objExpl = explorer;
    if (!explorer) return;
    connect(explorer, &outlook::Explorer::Activate, this, &ExplWrap::m_objExpl_Activate);
    connect(explorer, &outlook::Explorer::BeforeFolderSwitch, this, &ExplWrap::m_objExpl_BeforeFolderSwitch);
    connect(explorer, &outlook::Explorer::Closed, this, &ExplWrap::m_objExpl_Close);
    connect(explorer, &outlook::Explorer::SelectionChange, this, &ExplWrap::m_objExpl_SelectionChange);
}

void ExplWrap::m_objExpl_Activate()
{
    if (m_objExpl) CommandBarHook(m_objExpl->CommandBars());
}

void ExplWrap::m_objExpl_BeforeFolderSwitch(outlook::Folder*, bool&)
{
    if (m_objExpl) CommandBarHook(m_objExpl->CommandBars());
}

void ExplWrap::m_objExpl_SelectionChange()
{
    // Only the first selection change of a newly reported Explorer.
    if (!m_addIn.NewExplorerFlag() || !m_objExpl) return;
    CommandBarHook(m_objExpl->CommandBars());
    m_addIn.SetNewExplorerFlag(false);
}

void ExplWrap::CommandBarHook(office::CommandBars*)
{
    ++m_hookCalls;
}

void ExplWrap::m_objExpl_Close()
{
    // Removing ourselves may fail (another wrapper under our key): then we
    // stay in the collection, and the rest still runs.
    m_addIn.KillExpl(m_key, this);
    SetExplorer(nullptr);
    outlook::Application* app = m_addIn.Application();
    if (!app) return;
    outlook::Explorers* explorers = app->GetExplorers();
    const int count = explorers ? explorers->Count() : 0;
    // At most 1: the host may still count the window that is closing. An
    // open message window keeps the add-in up, as it does for objExpl_Close.
    outlook::Inspectors* inspectors = app->GetInspectors();
    const int open = inspectors ? inspectors->Count() : 0;
    if (count <= 1 && !app->ActiveExplorer() && open == 0) {
        m_addIn.WriteLog(3, QStringLiteral("m_objExpl_Close"), QStringLiteral("Calling UnInitHandler..."));
        m_addIn.SetEntryPoint(QStringLiteral("m_objExpl_Close"));
        m_addIn.UnInitHandler();
    }
}

}  // namespace mv::addin
