#pragma once
/**
 * ProtectedSet: a vector used as a set, under a mutex. The buffer code keeps
 * pointers in it that are not handles (announced memory, buffer objects).
 * Nothing keeps it sorted; membership is a linear search from the front.
 */
#include <algorithm>
#include <vector>

#include <boost/thread/locks.hpp>
#include <boost/thread/mutex.hpp>

#include "GenTL_KESTA.h"
#include "api/Error.h"

namespace GenTL {

template <typename T> class ProtectedSet {
public:
    /// Appends p. If p is already there, records GC_ERR_RESOURCE_IN_USE with
    /// its default text (no stamp) and returns that code.
    int AddToSet(T p) {
        boost::lock_guard<boost::mutex> lock(m_mutex);
        if (std::find(m_items.begin(), m_items.end(), p) != m_items.end()) {
            return Refuse();
        }
        m_items.push_back(p);
        return GC_ERR_SUCCESS;
    }

    /// Removes the first p, keeping the order of the others. If p is not
    /// there, records GC_ERR_RESOURCE_IN_USE as AddToSet does.
    int RemoveFromSet(T p) {
        boost::lock_guard<boost::mutex> lock(m_mutex);
        auto it = std::find(m_items.begin(), m_items.end(), p);
        if (it == m_items.end()) {
            return Refuse();
        }
        m_items.erase(it);
        return GC_ERR_SUCCESS;
    }

private:
    static int Refuse() {
        CacheError(Error::GenerateError(GC_ERR_RESOURCE_IN_USE));
        return GC_ERR_RESOURCE_IN_USE;
    }

    std::vector<T> m_items;
    boost::mutex m_mutex;
};

} // namespace GenTL
