-- SPDX-License-Identifier: Apache-2.0
-- How many devices were seen with each software, the most frequent ones.
SELECT software, count(*) AS seen_devices
FROM (
    SELECT device, software
    FROM devices
    WHERE (:country = '' OR country = :country) AND (pulled = '' OR pulled >= :since)
    GROUP BY device, software
) AS seen
GROUP BY software
ORDER BY seen_devices DESC, software
LIMIT :most
