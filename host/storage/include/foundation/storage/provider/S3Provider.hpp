#pragma once
// Host calls of the S3 provider ("s3" scheme: s3://BUCKET/KEY).
//
// The provider reads its configuration (the AWS environment variables, then the shared
// credentials and config files of AWS_PROFILE) once, on first use, and keeps its HTTP
// connections open between calls. A front end or a test that changes the configuration
// afterwards calls reloadS3Configuration; calls already under way finish with the old one.
// Nothing here throws.
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

namespace foundation::storage::provider {

FOUNDATION_STORAGE_API void reloadS3Configuration();

}  // namespace foundation::storage::provider
