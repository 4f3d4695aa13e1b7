#include "workbench/largepages.h"

#include "maths/transforms/largepages.h"

namespace Tarnwick::DSO::Workbench {

void PreferLargePages(void* block, std::size_t bytes) noexcept
{
    Maths::PreferLargePages(block, bytes);
}

}  // namespace Tarnwick::DSO::Workbench
