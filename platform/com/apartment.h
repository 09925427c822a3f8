// platform/com/apartment.h: single-threaded apartments, seen by the thread that owns one.
//
// A thread that called CoInitialize (or CoInitializeEx with COINIT_APARTMENTTHREADED) is an apartment.
// An automation object that it registers in the global interface table, or sends to another thread
// with CoMarshalInterThreadInterfaceInStream, is called on the apartment's own thread, whichever thread
// the call comes from. Such calls wait in a queue until the apartment pumps: in one of the functions
// below, in a wait of platform/event that keeps the queue alive, or while it waits for a call of its own
// into another apartment.
//
// What other threads hold is a proxy with IUnknown, IDispatch and every dispatch-only interface that the
// object answers to; Invoke returns when the call has run. Interface pointers among a call's arguments
// and results cross as they are. After CoUninitialize (or the thread's end) a call through a proxy gives
// RPC_E_DISCONNECTED. An object that carries the free-threaded marshaler (FreeThreaded of com_object.h) is
// handed over itself, and so is one without IDispatch.
//
// On Windows all this is COM's own; the functions here dispatch the thread's window messages.
#ifndef QUORVANE_PLATFORM_COM_APARTMENT_H_
#define QUORVANE_PLATFORM_COM_APARTMENT_H_

#include <chrono>
#include <functional>
#include <memory>

#include "platform/com/com.h"

namespace quorvane {

// Makes the thread an apartment for a scope.
class ApartmentScope {
public:
    ApartmentScope() noexcept : result_(CoInitialize(nullptr)) {}
    ApartmentScope(const ApartmentScope&) = delete;
    ApartmentScope& operator=(const ApartmentScope&) = delete;
    ~ApartmentScope()
    {
        if (SUCCEEDED(result_))
            CoUninitialize();
    }

    // S_OK; S_FALSE: it was one already; RPC_E_CHANGED_MODE: it is a free thread by its own wish.
    HRESULT Result() const noexcept { return result_; }

private:
    HRESULT result_;
};

// Makes the thread a free one for a scope: every thread that isn't an apartment needs this on Windows before
// it takes interfaces from the global table.
class FreeThreadScope {
public:
    FreeThreadScope() noexcept : result_(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    FreeThreadScope(const FreeThreadScope&) = delete;
    FreeThreadScope& operator=(const FreeThreadScope&) = delete;
    ~FreeThreadScope()
    {
        if (SUCCEEDED(result_))
            CoUninitialize();
    }

    // S_OK; S_FALSE: it was one already; RPC_E_CHANGED_MODE: it is an apartment, and stays one.
    HRESULT Result() const noexcept { return result_; }

private:
    HRESULT result_;
};

// Whether the calling thread is a single-threaded apartment.
bool IsApartmentThread() noexcept;

// Runs every call that waits in the calling thread's queue (on Windows: dispatches every waiting message);
// returns at once when there is none, or when the thread is no apartment. True if anything ran.
bool PumpApartmentCalls() noexcept;

// The loop of an apartment's thread, for a host. Made anywhere; Run and RunFor are for the apartment's
// thread; Stop and Post may be called from any thread, but not from a signal handler. The object outlives
// every call to it.
class ApartmentLoop {
public:
    // Throws std::bad_alloc.
    ApartmentLoop();
    ApartmentLoop(const ApartmentLoop&) = delete;
    ApartmentLoop& operator=(const ApartmentLoop&) = delete;
    ~ApartmentLoop();

    // Runs calls and posted functions until Stop.
    void Run() noexcept;
    // The same for at most `time`. True if it was stopped, false if the time is up.
    bool RunFor(std::chrono::milliseconds time) noexcept;
    // Ends the present Run, or the next one at once; a later Run after that goes on again.
    void Stop() noexcept;
    // Hands over a function that Run calls on its thread, in the order of posting. What is still waiting
    // when the loop is destroyed is dropped. It must not throw. E_OUTOFMEMORY.
    [[nodiscard]] HRESULT Post(std::function<void()> function) noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_APARTMENT_H_
