#pragma once
// The entry points the add-in's toolbar and menu reach for the smart forms:
// a rule made from the selected message, addresses of the selected message
// added to a rule, and the Smart Add settings. Each shows its form modally
// and returns when it is closed; unexpected errors go to the error report.

#include "frmRuleProps.h"

class QWidget;

namespace mv::outlook {
class Explorer;
}

namespace mv::forms {

// The rule editor in mode "NewSA", filled from the first selected item of
// `explorer` (nullptr or an empty selection: an empty new rule). The item's
// folder is the folder the Explorer shows. True when a rule was saved.
bool ShowSmartAddForm(const RulePropsContext& context, outlook::Explorer* explorer,
                      QWidget* parent = nullptr);

// frmRuleUpdate over the first selected item of `explorer`. True when the
// rule editor it opened saved the rule.
bool ShowSmartUpdateForm(const RulePropsContext& context, outlook::Explorer* explorer,
                         QWidget* parent = nullptr);

// The Smart Add settings form. Only one is open at a time: a second call
// while it is shown brings that one to the front.
void RuleAddProps(store::cDB& db, os::ErrorReport& report, QWidget* parent = nullptr);

}  // namespace mv::forms
