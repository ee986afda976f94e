#include "simulate/plan.h"

unsigned Plan::Take(unsigned drawn, unsigned count)
{
    if (recipe.orders == Orders::Given)
        drawn = made.size() < recipe.choices.size() ? recipe.choices[made.size()] % count : 0;
    made.push_back(drawn);
    onChoice(drawn);
    return drawn;
}

unsigned Plan::Choose(unsigned count)
{
    return Take(static_cast<unsigned>(random.Below(count)), count);
}

bool Plan::Sometimes(unsigned oneIn)
{
    return Take(random.OneIn(oneIn) ? 1 : 0, 2) == 1;
}
