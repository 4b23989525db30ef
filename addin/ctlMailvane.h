#pragma once
// The "Mailvane" page of the host's Options dialog: the general settings
// held on OutAddIn (week start, toolbar, menu, run at start-up, status
// window, aligned ages). It shows the in-memory values when made and, on
// Apply, sets them on the add-in and stores them with SaveSettings.
//
// The host makes the page by its ProgID; RegisterOptionsPage puts the
// factory there for as long as the add-in lives. Where no widgets can be
// shown the factory makes nothing, as a missing control would.

#include "platform/outlook/PropertyPage.h"

#include <QWidget>

#include <cstdint>
#include <functional>
#include <vector>

class QCheckBox;
class QComboBox;

namespace mv {
class ProgIdRegistry;
}

namespace mv::addin {

class OutAddIn;

inline constexpr const char* kOptionsPageProgId = "MailvaneProps.ctlMailvane";

class ctlMailvane : public QWidget, public outlook::PropertyPage {
    Q_OBJECT
public:
    // `addIn` must outlive the page.
    explicit ctlMailvane(OutAddIn& addIn, QWidget* parent = nullptr);

    QWidget* Control() override { return this; }
    bool Dirty() const override { return m_dirty; }
    bool Apply() override;
    void SetSite(std::function<void()> onStatusChange) override { m_site = std::move(onStatusChange); }

private:
    // One check box per on/off setting. `isOn` reads a stored value the way
    // its users do (the menu is built only for a value above 0, runs on start
    // only for 1), so an unusual value is kept unless the box is changed.
    struct Switch {
        const char* objectName;
        const char* caption;
        std::int16_t (OutAddIn::*get)() const;
        void (OutAddIn::*set)(std::int16_t);
        bool (*isOn)(std::int16_t);
    };
    static const Switch kSwitches[];

    void LoadSettings();
    void Changed();

    OutAddIn& m_addIn;
    QComboBox* m_cmbWeekStart = nullptr;
    std::vector<QCheckBox*> m_boxes;
    bool m_dirty = false;
    std::function<void()> m_site;
};

// Registers the page's factory under kOptionsPageProgId; the factory makes
// pages over `addIn`, which must outlive the registration.
void RegisterOptionsPage(ProgIdRegistry& progIds, OutAddIn& addIn);

}  // namespace mv::addin
