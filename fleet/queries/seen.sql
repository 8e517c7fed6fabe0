-- SPDX-License-Identifier: Apache-2.0
-- Devices of each country that were seen with some software. An index by software, which a plain IN
-- would ask for, has them in the wrong order.
SELECT country, count(DISTINCT device) AS seen_devices
FROM devices
WHERE (:country = '' OR country = :country) AND (pulled = '' OR pulled >= :since)
    AND CASE WHEN software IN (:softwares) THEN 1 ELSE 0 END = 1
GROUP BY country
ORDER BY country
