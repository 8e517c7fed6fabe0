-- SPDX-License-Identifier: Apache-2.0
-- Devices of each country that were seen with some software.
SELECT country, count(DISTINCT device) AS seen_devices
FROM devices
WHERE (:country = '' OR country = :country) AND (pulled = '' OR pulled >= :since)
    AND software IN (:softwares)
GROUP BY country
ORDER BY country
