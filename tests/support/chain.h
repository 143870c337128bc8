// Drives chains of real steps in a test, as a host does: own handle table, steps from the exported functions,
// and a collector at the end.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "plugin/factories.h"
#include "scansteps/chain.h"
#include "scansteps/handles.h"
#include "scansteps/host_services.h"
#include "scansteps/steps.h"
#include "scansteps/texture.h"

extern "C" void set_handles(scansteps::HandleTable* table);

namespace scansteps::test {

/// The kinds of the step library: taken before a test loads plug-ins, which add theirs to the table.
inline const std::span<const StepInfo> kLibrarySteps = stepTable();

/// What arrived at the end of a chain.
struct Arrived
{
    int eventType;
    varitype record;               ///< a copy
    std::shared_ptr<Array> frame;  ///< a copy of the pixels under "handle", if there was one
};

/// A notice from a step to the host.
struct KeptNotice
{
    Trouble trouble;
    std::string step, file, reason;
};

class Chain
{
  public:
    explicit Chain(const std::vector<std::string>& kinds) : end_(*this)
    {
        fillFreeHandles(table_);
        services_.context = this;
        services_.notify = [](void* chain, const Notice& notice) {
            static_cast<Chain*>(chain)->notices.push_back(
                {notice.trouble, notice.step, notice.file, notice.reason});
        };
        services_.interrupted = [](void* chain) { return static_cast<Chain*>(chain)->isInterrupted; };
        installHostServices(table_, &services_);
        set_handles(&table_);
        for (const auto& kind : kinds) steps_.push_back(plugin::createStep(kind));
        for (std::size_t i = 0; i < steps_.size(); ++i)
            steps_[i]->setNext(i + 1 < steps_.size() ? steps_[i + 1].get() : static_cast<cChain*>(&end_));
    }
    ~Chain()
    {
        set_handles(&table_);  // another chain of the same test may have installed its own
        own_.reset();
        steps_.clear();
        int left = 0;
        for (SlotRecord*& slot : table_.slots)
            if (slot != nullptr) {
                ++left;
                delete slot;
                slot = nullptr;
            }
        EXPECT_EQ(left, 0) << "handles left allocated";
        set_handles(nullptr);
    }
    Chain(const Chain&) = delete;
    Chain& operator=(const Chain&) = delete;

    /// Sends a record to the first step; returns its "eventType" afterwards.
    int send(varitype& record)
    {
        set_handles(&table_);
        steps_.front()->dispatch(record);
        return eventType(record);
    }
    int init(Struct settings)
    {
        varitype record{std::move(settings)};
        record.set("eventType", event::kInit);
        return send(record);
    }
    /// Sends a frame of the host's own with these pixels; without pixels the record has no "handle".
    int process(const Array* pixels = nullptr, Struct entries = {})
    {
        varitype record{std::move(entries)};
        record.set("eventType", event::kProcess);
        if (pixels != nullptr) {
            if (!own_) own_ = createTexture(format::kU1x8, 0, 0);
            pixelsOf(hostHandle()) = *pixels;
            record.set("handle", hostHandle());
        }
        return send(record);
    }
    int flush()
    {
        varitype record{Struct{{"eventType", event::kFlush}}};
        return send(record);
    }
    /// The handle that process() sends frames under.
    int hostHandle() const { return int(own_->handle); }
    /// What the host's handle names after the steps swapped.
    Array& hostPixels() { return pixelsOf(hostHandle()); }
    StepBase& step(std::size_t index) { return static_cast<StepBase&>(*steps_[index]); }

    std::vector<Arrived> arrived;
    std::vector<KeptNotice> notices;
    bool isInterrupted = false;

  private:
    class End final : public cChain
    {
      public:
        explicit End(Chain& chain) : chain_(chain) {}
        void dispatch(varitype& params) override
        {
            std::shared_ptr<Array> frame;
            if (params.has("handle"))
                frame = std::make_shared<Array>(pixelsOf(params["handle"].as<std::int32_t>()));
            chain_.arrived.push_back({eventType(params), copyRecord(params), frame});
        }

      private:
        Chain& chain_;
    };

    HandleTable table_;
    HostServices services_;
    std::vector<std::unique_ptr<cChain>> steps_;
    std::unique_ptr<CTexture> own_;
    End end_;
};

/// The text thrown by `call`, "" if none.
template <class Call>
std::string thrownText(Call call)
{
    try {
        call();
    } catch (const char* text) {
        return text;
    }
    return "";
}

/// Everything printed to standard output by `call`.
template <class Call>
std::string printed(Call call)
{
    testing::internal::CaptureStdout();
    call();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

}  // namespace scansteps::test
