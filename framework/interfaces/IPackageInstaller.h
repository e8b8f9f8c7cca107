// Changes what is installed: installs packages offered by the local repository
// and removes installed ones, by name. A call only says whether the request
// was accepted; its outcome comes later through onRequestEnd, with the
// operation "install" or "remove" and a ReturnCode.
//
// Listeners hear onRequestEnd on the installer's thread; listener pointers are
// not owned.
#pragma once

#include "frame/IObservable.h"
#include "frame/ReturnCode.h"
#include "serial/VectorObject.h"

#include <string>

namespace Velmora {

class IPackageInstaller {
public:
    virtual ~IPackageInstaller() = default;

    virtual ReturnCode packageInstall(VectorObject<std::string> const& packages, bool force) = 0;
    virtual ReturnCode packageRemove(VectorObject<std::string> const& packages, bool force) = 0;

    class IPackageInstallerListener : public virtual IListener {
    public:
        virtual int onRequestEnd(VectorObject<std::string> const& packages, std::string const& operation,
                                 ReturnCode result) = 0;
    };

    class IPackageInstallerNotifier : public virtual IObservable, public virtual IPackageInstallerListener {};
};

} // namespace Velmora
