#pragma once
// The host's Options dialog. Opening it raises the application's
// OptionsPagesAdd; each page an add-in names there is made by its ProgID
// and shown in a tab under the caption given. OK and Apply apply every page
// that has changes (OK closes only when all were stored); Cancel drops them.
//
// A ProgID with no component behind it still gets its tab, saying so, so the
// user sees which add-in's page is missing instead of nothing.

#include <QDialog>

#include <memory>
#include <vector>

class QPushButton;
class QTabWidget;

namespace mv {
class ProgIdRegistry;
}
namespace mv::outlook {
class Application;
class PropertyPage;
}  // namespace mv::outlook

namespace mv::host {

class OptionsDialog : public QDialog {
    Q_OBJECT
public:
    // `application` and `progIds` must outlive the dialog.
    OptionsDialog(outlook::Application& application, ProgIdRegistry& progIds, QWidget* parent = nullptr);
    ~OptionsDialog() override;

    // Applies every page with changes; false when one could not store them.
    bool ApplyPages();
    std::size_t PageCount() const { return m_pages.size(); }

private:
    class Pages;

    void AddPage(const QString& progId, const QString& caption);
    void UpdateApply();

    ProgIdRegistry& m_progIds;
    QTabWidget* m_tabs = nullptr;
    QPushButton* m_btnApply = nullptr;
    std::vector<std::unique_ptr<outlook::PropertyPage>> m_pages;
};

}  // namespace mv::host
