#pragma once
// A page of the host's Options dialog, made by ProgID. The dialog asks for
// it by the ProgID an add-in names in OptionsPagesAdd, puts Control() in a
// tab, and calls Apply() on OK or Apply when the page says it is Dirty().
// The page tells the dialog of a change through the site it is given, so
// the dialog can enable its Apply button.
//
// The dialog holds the page for its own lifetime and puts Control() in a
// tab; a control that is not the page itself belongs to that tab.

#include <functional>

class QWidget;

namespace mv::outlook {

class PropertyPage {
public:
    virtual ~PropertyPage() = default;
    virtual QWidget* Control() = 0;
    virtual bool Dirty() const = 0;
    // Stores the page's values; false when they could not be stored.
    virtual bool Apply() = 0;
    // `onStatusChange` is called whenever Dirty() may have changed.
    virtual void SetSite(std::function<void()> onStatusChange) = 0;
};

}  // namespace mv::outlook
