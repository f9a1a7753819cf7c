#pragma once

#include "sipstack/DsHandle.h"
#include "sipstack/DsObject.h"

namespace Quorvex
{

class DsSipDialog;
class DsSipStack;

/// What inbound and outbound calls share.
///
/// Threads: the operations of calls, dialogs and server transactions may be called on any thread. What can be
/// checked at once throws a DsException (no such dialog, wrong state, a message that cannot be sent); the
/// rest is carried out on the SIP stack thread, in the order of the calls, and what fails there comes back as
/// a callback.
class DsSipCall : public DsObject
{
public:
    /// Ends the call in whatever way fits its state (480 or CANCEL before the answer, BYE after it).
    /// Repeatable: on a call that is ending or over it does nothing.
    virtual void hangup() = 0;

    /// The call's first dialog; nil while there is none.
    virtual DsHandle<DsSipDialog> getDialog() const = 0;

    /// The new dialog takes the replaced one's place in this call: later reports about it go to this call's
    /// interface. The 2xx is then sent with DsSipDialog::sendResponse() on the new dialog, and the replaced
    /// dialog ended with DsSipDialog::hangup().
    virtual void acceptReplaces(const DsHandle<DsSipDialog>& in_hReplacedDialog,
                                const DsHandle<DsSipDialog>& in_hNewDialog) = 0;

    /// Gives the new dialog up; when its INVITE was not answered with sendResponse(), the layer answers 603.
    virtual void rejectReplaces(const DsHandle<DsSipDialog>& in_hReplacedDialog,
                                const DsHandle<DsSipDialog>& in_hNewDialog) = 0;
};

}  // namespace Quorvex
