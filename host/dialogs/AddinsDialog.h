#pragma once
// The host's "COM Add-ins" dialog: every add-in registered with the host,
// checked when it is connected, with its description and load behaviour.
// On OK an add-in unchecked is removed (disconnected by the user; it is not
// loaded at the next start) and one checked again is connected at once and
// loaded at start from then on. When one cannot be connected the dialog
// stays open and says why.

#include <QDialog>

class QLabel;
class QListWidget;

namespace mv::host {

class AddinLoader;
struct AddinInfo;

class AddinsDialog : public QDialog {
    Q_OBJECT
public:
    // `loader` must outlive the dialog.
    explicit AddinsDialog(AddinLoader& loader, QWidget* parent = nullptr);

    // The text shown for an add-in's load behaviour.
    static QString LoadBehaviorText(const AddinInfo& info);
    // Carries out the check boxes; true when every change took effect.
    bool ApplyChecks();

private:
    void Fill();
    void ShowDetails();

    AddinLoader& m_loader;
    QListWidget* m_lstAddins = nullptr;
    QLabel* m_lblDescription = nullptr;
    QLabel* m_lblLoadBehavior = nullptr;
    QLabel* m_lblError = nullptr;
};

}  // namespace mv::host
