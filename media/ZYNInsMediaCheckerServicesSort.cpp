// The sort of a volume's File elements by path, which the scan mostly hands over in that
// order already.
#include <algorithm>
#include <memory>
#include <vector>

#include "ZYNAdmXmlElement.h"
#include "ZYNInsFileFields.h"
#include "ZYNInsMediaCheckerServices.h"

// The value of `path` without copying the handle: the comparison runs n log n times.
static DString const& sPathOf(ZYNAdmXmlElement const& element) {
  static DString const S_path(L"path");
  return element.GetAttributeValueRef(S_path);
}

int ZYNInsMediaCheckerServices::CompareEltsByPathAttr(const ZYNAdmXmlElement& a, const ZYNAdmXmlElement& b) {
  return DString::Compare(&sPathOf(a), &sPathOf(b));
}

// Paths are read in place, two readers in turn, so that the elements stay compact.
static bool sIsInPathOrder(ZYNAdmXmlElement const& element) {
  std::unique_ptr<ZYNInsFileFields[]> fields(new ZYNInsFileFields[2]);
  int current = 0;
  bool first = true;
  for (ZYNAdmXmlElement const& child : element.Children()) {
    fields[current].Read(&child, ZYNInsFileFields::kPath);
    if (!first && ZYNInsFileFields::ComparePaths(fields[1 - current], fields[current]) > 0) return false;
    first = false;
    current = 1 - current;
  }
  return true;
}

// A stable sort gives the order of picking, again and again, the earliest of the smallest
// children. A child without a name would never be picked and is dropped.
void ZYNInsMediaCheckerServices::XmlEltSort(int (*compare)(const ZYNAdmXmlElement&, const ZYNAdmXmlElement&),
                                            ZYNAdmXmlElement& element) {
  ZYNAdmXmlElement sorted(element.GetName());
  // The scan hands its elements over in path order already: they move over one by one,
  // so that the two lists never hold them all at once.
  if (compare == CompareEltsByPathAttr && sIsInPathOrder(element)) {
    for (void* it = element.GetChildren(); it != nullptr; it = element.GetChildren()) {
      ZYNAdmXmlElement child = element.GetChild(it);
      if (!child.GetNameRef().IsEmpty()) sorted.AddChild(child);
      element.RemoveChild(child);
    }
    element = sorted;
    return;
  }
  std::vector<ZYNAdmXmlElement> children;
  for (ZYNAdmXmlElement const& child : element.Children()) children.push_back(child);

  // Pointers move, not handles; the usual order by path reads each key once.
  struct SKeyed {
    DString const* key;
    ZYNAdmXmlElement const* child;
  };
  std::vector<SKeyed> order;
  order.reserve(children.size());
  for (ZYNAdmXmlElement const& child : children) order.push_back({&sPathOf(child), &child});
  if (compare == CompareEltsByPathAttr) {
    std::stable_sort(order.begin(), order.end(),
                     [](SKeyed const& a, SKeyed const& b) { return DString::Compare(a.key, b.key) < 0; });
  } else {
    std::stable_sort(order.begin(), order.end(),
                     [compare](SKeyed const& a, SKeyed const& b) { return compare(*a.child, *b.child) < 0; });
  }
  for (SKeyed const& entry : order) {
    if (!entry.child->GetNameRef().IsEmpty()) sorted.AddChild(*entry.child);
  }
  // The old body gives up its children, as they moved to the new one.
  for (ZYNAdmXmlElement const& child : children) element.RemoveChild(child);
  element = sorted;
}
