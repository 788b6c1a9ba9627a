/// The executor phase of a deployment. Listening thread.
#pragma once

#include "deployment.h"

namespace jobm {

/// Hands the resources to the executors of their types. The last executor's answer ends the
/// deployment; when none is called, it ends here.
void NotifyExecutors(const SharedDeployment& deployment);

}  // namespace jobm
