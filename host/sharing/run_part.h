// host/sharing/run_part.h: work that a run does beside its own, step by step.
#ifndef QUORVANE_HOST_SHARING_RUN_PART_H_
#define QUORVANE_HOST_SHARING_RUN_PART_H_

#include "host/base/change_watch.h"

namespace quorvane::host {

// Called on the run's thread. Methods throw a HostError when the run can't go on.
class RunPart {
public:
    RunPart() = default;
    RunPart(const RunPart&) = delete;
    RunPart& operator=(const RunPart&) = delete;
    virtual ~RunPart() = default;

    // Names the directories in which something may happen that is to wake the run.
    virtual void WatchPlaces(ChangeWatch& watch) = 0;
    // Does what there is to do. isFree: the engine applies nothing meanwhile.
    virtual void Step(bool isFree) = 0;
    // Whether the next step has something to do.
    virtual bool HasWork() = 0;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_RUN_PART_H_
