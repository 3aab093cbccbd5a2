#include "peximage/platform/varda/QuarnData.h"

#include "peximage/platform/varda/OnQueue.h"

namespace pex {
namespace {

Task<std::optional<QuarnData::Result>> ask(QuarnData::Source source, std::string id) {
    co_await OnQueue{};
    std::optional<Data> data = source ? source(id) : std::nullopt;
    if (!data) co_return std::nullopt;
    co_return QuarnData::Result{std::move(*data)};
}

} // namespace

Task<std::optional<QuarnData::Result>> QuarnData::getData(WithId item) const {
    return ask(source_, std::move(item.withId));
}

} // namespace pex
