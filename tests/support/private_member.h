// Access to private members, for promises that the public interface cannot show.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_PRIVATE_MEMBER_H_
#define TARSIO_COMMON_TESTS_SUPPORT_PRIVATE_MEMBER_H_

namespace tarsio_test {

// An explicit instantiation may name private members. It defines the function that the tag
// declares.
template <typename Tag, auto member>
struct ExposePrivate {
  friend auto Reach(Tag /*tag*/) { return member; }
};

}  // namespace tarsio_test

// Makes Reach(Tag()) a pointer to a member:
//
//     EXPOSE_PRIVATE(Secret, &Host::secret);
//     host.*Reach(Secret())
#define EXPOSE_PRIVATE(Tag, member) \
  struct Tag {                      \
    friend auto Reach(Tag);         \
  };                                \
  template struct ExposePrivate<Tag, member>

#endif  // TARSIO_COMMON_TESTS_SUPPORT_PRIVATE_MEMBER_H_
