#include "ProcessSight.h"

#include "internal/Machine.h"
#include "os/HelpedProcessList.h"

#include <QtCore/QFileInfo>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tarn::vkservice {

namespace {

// That of vkprocesses.socket, in a folder where only root can make files.
const auto sSocket = u"/run/vkprocesses.socket"_s;

bool seesAll()
{
    __user_cap_header_struct tHeader = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct tData[_LINUX_CAPABILITY_U32S_3] = {};
    return ::syscall(SYS_capget, &tHeader, tData) == 0 && (tData[0].effective & (1U << CAP_SYS_PTRACE)) != 0;
}

} // namespace

ProcessSight chooseSight(os::Descriptor pOwn)
{
    if (pOwn.isOpen()) {
        return {std::make_unique<os::HelpedProcessList>(std::move(pOwn), os::HelpedProcessList::Patience()),
                true};
    }
    if (seesAll() || !vkcore::machine::isActing() || !QFileInfo::exists(sSocket)) {
        return {nullptr, seesAll()};
    }
    return {std::make_unique<os::HelpedProcessList>(sSocket), true};
}

} // namespace tarn::vkservice
