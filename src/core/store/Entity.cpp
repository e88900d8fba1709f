#include "Entity.h"

int Entity::indexOf(const QString &attributeName) const
{
    for (int i = 0; i < attributes.size(); ++i) {
        if (attributes.at(i).name == attributeName)
            return i;
    }
    return -1;
}
