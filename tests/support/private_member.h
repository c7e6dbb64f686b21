// Access to private members, for guarantees that are not visible from outside.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_PRIVATE_MEMBER_H_
#define TARSIO_COMMON_TESTS_SUPPORT_PRIVATE_MEMBER_H_

namespace tarsio_test {

// An explicit instantiation may name private members. This one defines a function that a tag in
// this namespace declares:
//
//     struct Secret {
//       using Type = int Host::*;
//       friend Type Reach(Secret);
//     };
//     template struct ExposePrivate<Secret, &Host::secret>;
//     host.*Reach(Secret())
template <typename Tag, typename Tag::Type member>
struct ExposePrivate {
  friend typename Tag::Type Reach(Tag /*tag*/) { return member; }
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_PRIVATE_MEMBER_H_
