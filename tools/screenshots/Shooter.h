#pragma once
// Walks the running program's windows and dialogs the way a user would
// (menus, toolbar buttons, the dialogs' own buttons) and saves a picture of
// each into a folder. Dialogs are modal, so each click that opens one
// blocks until it closes: a watch armed before the click finds the new
// dialog, pictures it and closes it again.
//
// Each picture's window title, size and tab order are printed on stdout, so
// a review of the pictures can check what a picture cannot show.

#include <QObject>
#include <QString>

#include <functional>

class QAbstractButton;
class QRect;
class QWidget;

namespace mv::host::desktop {
class DesktopApplication;
class ExplorerWindow;
}  // namespace mv::host::desktop

namespace mv::tools {

class Shooter final : public QObject {
    Q_OBJECT
public:
    // `previewRule`: the rule whose preview is pictured (a name or its
    // beginning); empty: the first rule.
    Shooter(host::desktop::DesktopApplication& app, QString outDir, QString previewRule,
            QObject* parent = nullptr);

    // Takes every picture; returns the number that could not be taken.
    int Run();

private:
    void Explorer(host::desktop::ExplorerWindow& explorer);
    void Inspector(host::desktop::ExplorerWindow& explorer);
    void Options(host::desktop::ExplorerWindow& explorer);
    void RulesManager(host::desktop::ExplorerWindow& explorer);
    void RuleEditor(QWidget& rulesManager);
    void RuleUpdate(host::desktop::ExplorerWindow& explorer);
    // Runs the rules from the toolbar and shoots the window with Undo.
    void RunSummary(host::desktop::ExplorerWindow& explorer);

    // Runs `then` on the next modal dialog named `name` once it has settled;
    // the dialog is closed afterwards if `then` left it open. Arm before the
    // click that opens it.
    void Expect(const QString& name, std::function<void(QWidget& dialog)> then);
    // Clicks `buttonName` inside `owner` and pictures the dialog it opens.
    void ClickAndShoot(QWidget& owner, const char* buttonName, const QString& dialogName,
                       const QString& picture);
    void Click(QWidget& owner, const char* buttonName);
    bool Save(QWidget& window, const QString& picture);
    bool SaveScreen(const QRect& area, QWidget& window, const QString& picture);
    void Describe(QWidget& window, const QString& picture);
    void Pause(int milliseconds);
    void Fail(const QString& what);
    // Answers a message box nobody expected with its escape button, so a
    // question never stops the walk.
    void DismissStrayBoxes();

    host::desktop::DesktopApplication& m_app;
    QString m_outDir;
    QString m_previewRule;
    int m_failures = 0;
};

}  // namespace mv::tools
