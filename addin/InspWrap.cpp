#include "InspWrap.h"

#include "OutAddIn.h"

#include "platform/outlook/Windows.h"

namespace mv::addin {

InspWrap::InspWrap(OutAddIn& addIn, QObject* parent) : QObject(parent), m_addIn(addIn) {}

void InspWrap::SetInspector(outlook::Inspector* inspector)
{
    if (m_objInsp) disconnect(m_objInsp, nullptr, this, nullptr);
    m_objInsp = inspector;
    if (inspector) connect(inspector, &outlook::Inspector::Closed, this, &InspWrap::m_objInsp_Close);
}

void InspWrap::m_objInsp_Close()
{
    m_addIn.KillInsp(m_key, this);
    SetInspector(nullptr);
}

}  // namespace mv::addin
