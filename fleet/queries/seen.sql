-- SPDX-License-Identifier: Apache-2.0
-- Devices of each country that were seen with the software in question, and with those before it. A
-- device that was in several countries counts in one.
SELECT home, sum(has_new) AS new_devices, sum(has_old) AS old_devices
FROM (
    SELECT device, min(country) AS home,
        max(CASE WHEN software = :software THEN 1 ELSE 0 END) AS has_new,
        max(CASE WHEN software IN (:before) THEN 1 ELSE 0 END) AS has_old
    FROM devices
    WHERE (:country = '' OR country = :country) AND (pulled = '' OR pulled >= :since)
    GROUP BY device
) AS seen_devices
GROUP BY home
ORDER BY home
