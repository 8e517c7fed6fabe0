-- SPDX-License-Identifier: Apache-2.0
-- Where the copies of devices lie, and what the devices are.
SELECT device, max(path) AS some_path, max(software) AS some_software, max(country) AS some_country,
    max(model) AS some_model
FROM devices
WHERE device IN (:devices)
GROUP BY device
ORDER BY device
