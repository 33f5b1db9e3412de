#pragma once

#include <vkcore/Export.h>
#include <vkcore/GRef.h>
#include <vkcore/Server.h>

#include <QtCore/QList>

namespace tarn::vkcore {

class Application;

// A snapshot of the service's list of update servers, in the service's order. A position in
// mServers, counted from 0, is the index that IPCClient::changeServer and removeServer take.
class VKCORE_EXPORT ServerList : public CountedObject
{
public:
    explicit ServerList(Application* pApp);

    QList<GRef2<Server>> mServers;

protected:
    ~ServerList() override;
};

} // namespace tarn::vkcore
