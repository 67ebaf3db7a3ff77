#ifndef MW_VISIBILITY_HPP
#define MW_VISIBILITY_HPP

// The plugin is built with hidden visibility. Types that the host catches or
// casts across the library boundary keep default visibility so that their
// type information is shared with the host.
#define MW_EXPORT_TYPE __attribute__((visibility("default")))

// The plugin's single entry point.
#define MW_EXPORT_FUNCTION __attribute__((visibility("default")))

#endif
