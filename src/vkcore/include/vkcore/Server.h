#pragma once

#include <vkcore/Export.h>
#include <vkcore/GRef.h>

#include <QtCore/QString>
#include <QtCore/QUrl>

#include <optional>

namespace tarn::vkcore {

class Application;

// An update server of the service's list. A new one is enabled, is not the default, and has no texts.
class VKCORE_EXPORT Server : public CountedObject
{
public:
    explicit Server(Application* pApp);

    const QString& getName() const { return mName; }
    // A name derived from the address: the host, or the last folder of a file address; empty without an
    // address.
    QString getSuggestedName() const;
    // The address as stored, a fully encoded URL.
    const QString& getUri() const { return mUri; }
    QUrl getUrl() const;
    const QString& getUserName() const { return mUserName; }
    // The password that was set on this object; none if setPassword was not called, which keeps the stored
    // password of a changed server.
    const std::optional<QString>& getPassword() const { return mPassword; }
    bool savePassword() const { return mSavePassword; }
    bool isDefault() const { return mDefault; }
    bool isEnabled() const { return mEnabled; }

    void setName(const QString& pName) { mName = pName; }
    void setUri(const QString& pUri) { mUri = pUri; }
    void setUserName(const QString& pUserName) { mUserName = pUserName; }
    void setPassword(const QString& pPassword) { mPassword = pPassword; }
    void setSavePassword(bool pSave) { mSavePassword = pSave; }
    void setDefault(bool pDefault) { mDefault = pDefault; }
    void setEnabled(bool pEnabled) { mEnabled = pEnabled; }

protected:
    ~Server() override;

private:
    QString mName;
    QString mUri;
    QString mUserName;
    std::optional<QString> mPassword;
    bool mSavePassword = false;
    bool mDefault = false;
    bool mEnabled = true;
};

} // namespace tarn::vkcore
