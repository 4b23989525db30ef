#include "Connect.h"

#include "platform/common/ProgIdRegistry.h"
#include "platform/office/CommandBars.h"

namespace mv::addin {

Connect::~Connect() = default;

OutAddIn& Connect::Instance()
{
    if (!m_addIn) {
        m_addIn = std::make_unique<OutAddIn>(*m_services.report, m_services.log, *m_services.progIds,
                                             *m_services.clock, m_services.installDir);
        m_addIn->SetClipboard(m_services.clipboard);
        m_addIn->SetFormLauncher(m_services.forms);
        if (!m_services.appDataOverride.isEmpty()) m_addIn->SetAppDataOverride(m_services.appDataOverride);
        if (m_services.configure) m_services.configure(*m_addIn);
    }
    return *m_addIn;
}

void Connect::OnConnection(outlook::Application* application, int, AddInInstance& addInInst)
{
    Instance().InitHandler(application, addInInst.ProgId);
    addInInst.Object = this;
}

void Connect::OnDisconnection(int removeMode)
{
    if (removeMode == outlook::ext_dm_UserClosed) {
        // "Items", not the "Mailvane" toolbar: kept as it always was.
        try {
            outlook::Application* app = m_addIn ? m_addIn->Application() : nullptr;
            outlook::Explorer* explorer = app ? app->ActiveExplorer() : nullptr;
            office::CommandBars* bars = explorer ? explorer->CommandBars() : nullptr;
            if (office::CommandBar* items = bars ? bars->Item(QStringLiteral("Items")) : nullptr) items->Delete();
        } catch (...) {  // NOLINT(bugprone-empty-catch): a failing delete does not stop the shut-down
        }
    }
    OutAddIn& addIn = Instance();
    addIn.SetEntryPoint(QStringLiteral("IDTExtensibility2_OnDisconnection"));
    addIn.UnInitHandler();
    m_addIn.reset();
}

void RegisterConnect(ProgIdRegistry& registry, AddInServices services)
{
    registry.Register<outlook::IDTExtensibility2>(
        QString::fromLatin1(kConnectProgId),
        [services]() -> std::unique_ptr<outlook::IDTExtensibility2> { return std::make_unique<Connect>(services); });
}

}  // namespace mv::addin
