-- SPDX-License-Identifier: Apache-2.0
-- Devices of each signature and country with the software in question, and with those before it. A
-- device that was in several countries counts in one.
SELECT signature, home, sum(has_new) AS new_devices, sum(has_old) AS old_devices
FROM (
    SELECT signature, device, min(country) AS home,
        max(CASE WHEN software = :software THEN 1 ELSE 0 END) AS has_new,
        max(CASE WHEN software IN (:before) THEN 1 ELSE 0 END) AS has_old
    FROM episodes
    WHERE (:country = '' OR country = :country) AND begin >= :since
        AND signature IN (:signatures)
    GROUP BY signature, device
) AS affected
GROUP BY signature, home
ORDER BY signature, home
