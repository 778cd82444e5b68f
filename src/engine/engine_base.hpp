// What engines are made of: the counted object, interfaces as its members, counted references.
#pragma once

#include "vela_enc_mp1a/engine.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace vela {

/// Puts `target` into `holder` as a counted reference. The new reference is taken before the old one is
/// dropped: both may be the last ones of the same object.
template <class I>
void assign_counted(I *&holder, I *target) noexcept {
    target->AddRef();
    I *const dropped = holder;
    holder = target;
    if (dropped != nullptr) dropped->Release();
}

/// A counted object without interfaces. Slots: those of IEngine, then the two destructors.
class EngineBase : public IEngine {
  public:
    EngineBase() noexcept = default;
    EngineBase(const EngineBase &) = delete;
    EngineBase &operator=(const EngineBase &) = delete;

    std::int32_t AddRef() noexcept override {
        return ref_count_.fetch_add(1, std::memory_order_relaxed) + 1;
    }

    /// Not reached: the objects that there are have interfaces and answer for themselves.
    std::int32_t QueryInterface(const engine_iid &, IEngine *&) noexcept override { return -1; }

    std::int32_t Release() noexcept override {
        // The destroying thread must see what the others did to the object before they let go of it.
        const std::int32_t count = ref_count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count == 0) delete this;
        return count;
    }

    virtual ~EngineBase() = default;

    // From malloc, like all memory of the library: when it is out, that is a result.
    static void *operator new(std::size_t size) noexcept { return std::malloc(size); }
    static void operator delete(void *block) noexcept { std::free(block); }

  private:
    std::atomic<std::int32_t> ref_count_ = 1;
};

/// An interface that is a member of a larger object: it shares the owner's count and interface query.
template <class I>
class OnMemberT : public I {
  public:
    explicit OnMemberT(IEngine *owner) noexcept : owner_(owner) {}
    OnMemberT(const OnMemberT &) = delete;
    OnMemberT &operator=(const OnMemberT &) = delete;

    std::int32_t AddRef() noexcept override { return owner_ == nullptr ? 0 : owner_->AddRef(); }
    std::int32_t QueryInterface(const engine_iid &iid, IEngine *&holder) noexcept override {
        return owner_ == nullptr ? -1 : owner_->QueryInterface(iid, holder);
    }
    std::int32_t Release() noexcept override { return owner_ == nullptr ? 0 : owner_->Release(); }

  protected:
    IEngine *owner() const noexcept { return owner_; }

  private:
    IEngine *owner_;
};

} // namespace vela
