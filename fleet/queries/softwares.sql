-- SPDX-License-Identifier: Apache-2.0
-- Devices that were seen with each software, the most frequent ones.
SELECT software, count(DISTINCT device) AS seen_devices
FROM devices
WHERE (:country = '' OR country = :country) AND (pulled = '' OR pulled >= :since)
GROUP BY software
ORDER BY seen_devices DESC, software
LIMIT :most
