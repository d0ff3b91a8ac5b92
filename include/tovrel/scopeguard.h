/*
 * The one way the libraries undo a step on every way out of a function: a
 * guard made right after the step, holding what undoes it. Release() keeps
 * the step (the object is handed on). Internal to the libraries and the
 * tools; not installed.
 */
#ifndef TOVREL_SCOPEGUARD_H
#define TOVREL_SCOPEGUARD_H

#ifdef __cplusplus

#include <utility>

template <class Undo>
class TovScopeGuard {
public:
    explicit TovScopeGuard(Undo undo) : undo_(std::move(undo)) {}
    ~TovScopeGuard() {
        if (armed_) undo_();
    }
    TovScopeGuard(const TovScopeGuard&) = delete;
    TovScopeGuard& operator=(const TovScopeGuard&) = delete;
    void Release() { armed_ = false; }

private:
    Undo undo_;
    bool armed_ = true;
};

#endif

#endif
