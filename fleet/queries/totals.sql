-- SPDX-License-Identifier: Apache-2.0
-- Devices with a failure.
SELECT count(DISTINCT device) AS failed_devices
FROM episodes
WHERE (:country = '' OR country = :country) AND begin >= :since
    AND (:signature = '' OR signature = :signature)
