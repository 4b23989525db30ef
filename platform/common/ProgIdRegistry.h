#pragma once
// Objects the system creates "by ProgID" come from here: one small registry
// of typed factories keyed by the ProgID text. Creation fails (nullptr)
// exactly where a missing component would, and a test makes it fail by
// registering nothing, or a factory that returns nullptr.
//
// Owned by whoever builds the program (host/ or a test) and passed down;
// there is no global instance.

#include <QHash>
#include <QString>

#include <any>
#include <functional>
#include <memory>

namespace mv {

class ProgIdRegistry {
public:
    template <class T>
    using Factory = std::function<std::unique_ptr<T>()>;

    template <class T>
    void Register(const QString& progId, Factory<T> factory)
    {
        m_factories.insert(progId.toLower(), std::any(std::move(factory)));
    }

    void Unregister(const QString& progId) { m_factories.remove(progId.toLower()); }
    bool Contains(const QString& progId) const { return m_factories.contains(progId.toLower()); }

    // nullptr when nothing is registered under `progId`, when it was
    // registered for another type, or when its factory fails.
    template <class T>
    std::unique_ptr<T> Create(const QString& progId) const
    {
        auto it = m_factories.constFind(progId.toLower());  // ProgIDs are case-insensitive
        if (it == m_factories.constEnd()) return nullptr;
        const auto* factory = std::any_cast<Factory<T>>(&*it);
        if (!factory || !*factory) return nullptr;
        return (*factory)();
    }

private:
    QHash<QString, std::any> m_factories;
};

}  // namespace mv
